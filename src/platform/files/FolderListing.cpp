#include "platform/files/FolderListing.hpp"

#include "platform/core/Error.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace velto::files {

namespace {

/// Opens a folder by a path of any length: what one system call does not take is opened piece by piece.
Descriptor openFolder(std::string_view path, bool followLink) {
    Descriptor at(AT_FDCWD);
    const auto step = [&at](std::string_view piece, int flags) {
        at = Descriptor(
            ::openat(at.get(), std::string(piece).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
        return static_cast<bool>(at);
    };
    while (path.size() >= PATH_MAX) {
        const auto cut = path.rfind('/', PATH_MAX - 2);
        if (cut == std::string_view::npos || cut == 0 || !step(path.substr(0, cut), 0)) return {};
        path.remove_prefix(cut + 1);
    }
    return step(path, followLink ? 0 : O_NOFOLLOW) ? std::move(at) : Descriptor();
}

Date dateOf(const statx_timestamp& time) {
    constexpr std::int64_t farthestSecond = 9'000'000'000'000; // in microseconds still 64 bits
    const std::int64_t second = std::clamp<std::int64_t>(time.tv_sec, -farthestSecond, farthestSecond);
    return dateFromMicroseconds(second * 1'000'000 + time.tv_nsec / 1'000);
}

EntryKind kindOf(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::regularFile;
    return S_ISDIR(mode) ? EntryKind::folder : EntryKind::other;
}

EntryKind kindOf(const dirent& entry, int folder) {
    switch (entry.d_type) {
    case DT_REG:
        return EntryKind::regularFile;
    case DT_DIR:
        return EntryKind::folder;
    case DT_UNKNOWN:
        break; // some file systems do not say
    default:
        return EntryKind::other;
    }
    struct ::stat info {};
    if (::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? EntryKind::other : EntryKind::unknown;
    return kindOf(info.st_mode);
}

} // namespace

FolderListing::FolderListing(const std::string& path, bool followLink)
    : path_(path) {
    Descriptor folder = openFolder(path, followLink);
    if (folder) stream_ = ::fdopendir(folder.get());
    if (stream_ != nullptr)
        (void)folder.release(); // the stream closes it
    else
        openError_ = errno;
}

FolderListing::~FolderListing() {
    if (stream_ != nullptr) ::closedir(stream_);
}

std::optional<Entry> FolderListing::next() {
    if (stream_ == nullptr) return std::nullopt;
    while (true) {
        errno = 0; // nothing else sets the end apart from a failure
        const dirent* entry = ::readdir(stream_);
        if (entry == nullptr && errno != 0) throw SystemError(errno, "Cannot read on in the folder", path_);
        if (entry == nullptr) return std::nullopt;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        return Entry{name, kindOf(*entry, ::dirfd(stream_))};
    }
}

std::optional<EntryAttributes> FolderListing::attributes(std::string_view name) const {
    struct ::statx info {};

    const std::string terminated(name);
    constexpr unsigned wanted = STATX_SIZE | STATX_MTIME | STATX_BTIME | STATX_INO;
    if (::statx(::dirfd(stream_), terminated.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &info) != 0) {
        if (errno == ENOENT) return std::nullopt;
        throw SystemError(errno, "Cannot read the attributes of", path_ + "/" + terminated);
    }
    EntryAttributes attributes{
        static_cast<std::int64_t>(info.stx_size), dateOf(info.stx_mtime), {}, info.stx_ino};
    if ((info.stx_mask & STATX_BTIME) != 0) attributes.creationDate = dateOf(info.stx_btime);
    return attributes;
}

} // namespace velto::files
