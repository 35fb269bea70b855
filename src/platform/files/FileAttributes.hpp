#pragma once

#include "platform/core/Date.hpp"

#include <filesystem>
#include <optional>

/// Questions about paths, answered without an exception: what cannot be asked is absent or false. Links are
/// followed. Each call is one system call; any thread may call.
namespace velto::files {

/// When the file was made; absent where the file system keeps no such date or the file cannot be asked.
[[nodiscard]] std::optional<Date> creationDate(const std::filesystem::path& path);

[[nodiscard]] bool exists(const std::filesystem::path& path);
[[nodiscard]] bool isDirectory(const std::filesystem::path& path);
[[nodiscard]] bool isRegularFile(const std::filesystem::path& path);

/// Whether this process may read the file, or list and enter the folder.
[[nodiscard]] bool isReadable(const std::filesystem::path& path);

} // namespace velto::files
