#include "tagwriting/FileCopy.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/Descriptor.hpp"
#include "tagwriting/mp3/FileBytes.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

namespace velto {

namespace {

using id3::FileBytes;

constexpr const char* lengthAttribute = "user.velto.backup-length"; // files hold it: do not change

void copyExtendedAttributes(int from, int to) {
    const ssize_t listLength = ::flistxattr(from, nullptr, 0);
    if (listLength <= 0) return;
    std::string names(static_cast<std::size_t>(listLength), '\0');
    const ssize_t filled = ::flistxattr(from, names.data(), names.size());
    if (filled <= 0) return;
    names.resize(static_cast<std::size_t>(filled));
    for (const char* name = names.data(); name < names.data() + names.size(); name += std::strlen(name) + 1) {
        const ssize_t length = ::fgetxattr(from, name, nullptr, 0);
        if (length < 0 || std::strcmp(name, lengthAttribute) == 0) continue;
        std::string value(static_cast<std::size_t>(length), '\0');
        const ssize_t read = ::fgetxattr(from, name, value.data(), value.size());
        if (read >= 0) (void)::fsetxattr(to, name, value.data(), static_cast<std::size_t>(read), 0);
    }
}

struct ::stat copyAttributes(int from, int to) {
    struct ::stat info {};

    if (::fstat(from, &info) != 0) return info;
    (void)!::fchown(to, info.st_uid, info.st_gid);
    (void)::fchmod(to, info.st_mode & 07777); // after the owner, whose change clears bits of it
    copyExtendedAttributes(from, to);
    return info;
}

bool mark(const FileBytes& copy, off_t length) {
    const std::string text = std::to_string(length);
    return ::fsetxattr(copy.descriptor(), lengthAttribute, text.data(), text.size(), 0) == 0;
}

/// False if a mark is wanted and cannot be had.
bool copy(const std::filesystem::path& from, const std::filesystem::path& to, bool withMark) {
    const FileBytes source(from, FileBytes::Mode::read);
    FileBytes copy(to, FileBytes::Mode::createNew);
    try {
        const struct ::stat info = copyAttributes(source.descriptor(), copy.descriptor());
        if (withMark && !mark(copy, info.st_size)) {
            (void)::unlink(to.c_str());
            return false;
        }
        copy.copyContent(source);
        if (copy.size() != info.st_size) throw SystemError(EIO, "Cannot copy", from.string());
        const std::array<timespec, 2> times{info.st_atim, info.st_mtim};
        (void)::futimens(copy.descriptor(), times.data());
        return true;
    } catch (...) {
        (void)::unlink(to.c_str());
        throw;
    }
}

} // namespace

void copyAttributes(const std::filesystem::path& from, const std::filesystem::path& to) {
    copyAttributes(FileBytes(from, FileBytes::Mode::read).descriptor(),
                   FileBytes(to, FileBytes::Mode::read).descriptor());
}

void copyModificationDate(const std::filesystem::path& from, const std::filesystem::path& to) {
    struct ::stat info {};

    if (::stat(from.c_str(), &info) != 0) throw SystemError(errno, "Cannot look at", from.string());
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, info.st_mtim};
    if (::utimensat(AT_FDCWD, to.c_str(), times.data(), 0) != 0)
        throw SystemError(errno, "Cannot date", to.string());
}

void copyFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    (void)copy(from, to, false);
}

bool copyMarked(const std::filesystem::path& from, const std::filesystem::path& to) {
    return copy(from, to, true);
}

bool isCompleteCopy(const std::filesystem::path& copy) {
    struct ::stat info {};

    if (::stat(copy.c_str(), &info) != 0) return false;
    std::array<char, 24> text{};
    const ssize_t length = ::getxattr(copy.c_str(), lengthAttribute, text.data(), text.size());
    if (length <= 0) return info.st_size > 0;
    long long expected = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + length, expected);
    return error != std::errc() || info.st_size == expected;
}

void forgetCopyMark(const std::filesystem::path& copy) {
    (void)::removexattr(copy.c_str(), lengthAttribute);
}

void syncFolder(const std::filesystem::path& folder) {
    const files::Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) throw SystemError(errno, "Cannot open", folder.string());
    // Some network file systems know no sync of a folder and say so with EINVAL.
    if (::fsync(descriptor.get()) != 0 && errno != EINVAL)
        throw SystemError(errno, "Cannot sync", folder.string());
}

} // namespace velto
