#pragma once

#include <filesystem>
#include <optional>

namespace velto {

/// Everything about a file but its content and its times: mode, owner, extended attributes with access lists.
/// What this user may not set is left out silently. Throws SystemError if a file cannot be opened.
void copyAttributes(const std::filesystem::path& from, const std::filesystem::path& to);

/// Throws SystemError.
void copyModificationDate(const std::filesystem::path& from, const std::filesystem::path& to);

/// Makes `to`, which must not exist, a copy of `from` with its attributes and times. On failure `to` is gone.
/// Not synced. Throws SystemError.
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// As copyFile; from its first byte on the copy carries the length that it is to have, so that one that was
/// cut short shows. False if the file system keeps no such mark: `to` is then gone.
[[nodiscard]] bool copyMarked(const std::filesystem::path& from, const std::filesystem::path& to);

/// False for a part of a copy: one shorter than its mark says, or an empty one that has none yet.
[[nodiscard]] bool isCompleteCopy(const std::filesystem::path& copy);

/// Takes the mark of copyMarked off: the copy becomes the file itself.
void forgetCopyMark(const std::filesystem::path& copy);

/// Puts the names of a folder on the disk.
void syncFolder(const std::filesystem::path& folder);

} // namespace velto
