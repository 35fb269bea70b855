#pragma once

#include <filesystem>
#include <string_view>

namespace velto::files {

/// Gives `file` a new content in one step: a crash at any moment leaves the old content or the new one, and
/// on return the new one is on the disk. Writes "<file>.new" beside it first (mode 0600, a left-over is
/// replaced). One writer per file at a time. Blocks. Throws SystemError; the old content then remains.
void replaceFile(const std::filesystem::path& file, std::string_view content);

} // namespace velto::files
