#pragma once

#include "platform/core/Date.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>

/// Questions about paths, answered without an exception: what cannot be asked is absent or false, with the
/// reason in `errno`. Links are followed. Any thread may call; each call asks the file system, which may not
/// answer for as long as a drive hangs, so not on the main actor.
namespace velto::files {

/// When the file was made; absent if the file system keeps no such date or the file cannot be asked.
[[nodiscard]] std::optional<Date> creationDate(const std::filesystem::path& path);

/// Tells a file or folder from another that has taken its path (an empty mount point, say).
struct FileIdentity {
    std::uint64_t device;
    std::uint64_t inode;

    bool operator==(const FileIdentity&) const = default;
};

[[nodiscard]] std::optional<FileIdentity> identityOf(const std::filesystem::path& path);

[[nodiscard]] bool exists(const std::filesystem::path& path);
[[nodiscard]] bool isDirectory(const std::filesystem::path& path);
[[nodiscard]] bool isRegularFile(const std::filesystem::path& path);

/// Whether this process may read the file, or list and enter the folder.
[[nodiscard]] bool isReadable(const std::filesystem::path& path);

} // namespace velto::files
