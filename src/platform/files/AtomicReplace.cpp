#include "platform/files/AtomicReplace.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/CopyContent.hpp"
#include "platform/files/Descriptor.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace velto::files {

namespace {

void writeAndSync(const std::string& path, std::string_view content) {
    (void)::unlink(path.c_str()); // a left-over, or something else in its place
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) throw SystemError(errno, "Cannot write", path);
    if (!writeFully(file.get(), content.data(), content.size()))
        throw SystemError(errno, "Cannot write", path);
    if (::fsync(file.get()) != 0) throw SystemError(errno, "Cannot write", path);
}

} // namespace

void replaceFile(const std::filesystem::path& file, std::string_view content) {
    const std::string fresh = file.string() + ".new";
    try {
        writeAndSync(fresh, content);
        if (::rename(fresh.c_str(), file.c_str()) != 0)
            throw SystemError(errno, "Cannot replace", file.string());
    } catch (const SystemError&) {
        (void)::unlink(fresh.c_str());
        throw;
    }
    const std::filesystem::path parent = file.has_parent_path() ? file.parent_path() : ".";
    const Descriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems cannot sync a folder (EINVAL); the rename itself has happened by now.
    if (!folder || (::fsync(folder.get()) != 0 && errno != EINVAL))
        throw SystemError(errno, "Cannot write", parent.string());
}

} // namespace velto::files
