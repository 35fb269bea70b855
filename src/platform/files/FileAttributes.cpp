#include "platform/files/FileAttributes.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velto::files {

namespace {

std::optional<struct ::stat> attributes(const std::filesystem::path& path) {
    struct ::stat info {};

    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return info;
}

} // namespace

std::optional<Date> creationDate(const std::filesystem::path& path) {
    struct ::statx info {};

    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &info) != 0) return std::nullopt;
    if ((info.stx_mask & STATX_BTIME) == 0) return std::nullopt;
    return Date(std::chrono::seconds(info.stx_btime.tv_sec) +
                std::chrono::microseconds(info.stx_btime.tv_nsec / 1'000));
}

std::optional<FileIdentity> identityOf(const std::filesystem::path& path) {
    const auto found = attributes(path);
    if (!found) return std::nullopt;
    return FileIdentity{found->st_dev, found->st_ino};
}

bool exists(const std::filesystem::path& path) {
    return attributes(path).has_value();
}

bool isDirectory(const std::filesystem::path& path) {
    const auto found = attributes(path);
    return found && S_ISDIR(found->st_mode);
}

bool isRegularFile(const std::filesystem::path& path) {
    const auto found = attributes(path);
    return found && S_ISREG(found->st_mode);
}

bool isReadable(const std::filesystem::path& path) {
    const int access = isDirectory(path) ? R_OK | X_OK : R_OK;
    return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0;
}

} // namespace velto::files
