#pragma once

#include "id3/ID3Tag.hpp"

#include <filesystem>
#include <functional>
#include <optional>

namespace velto::id3 {

class FileBytes;

/// The engine's front. Blocking; no state. Throws ID3TagEditorError, SystemError.
class ID3TagEditor {
  public:
    /// The tag of an MP3 file; nothing if it has none. Reads header and tag only.
    [[nodiscard]] static std::optional<ID3Tag> read(const std::filesystem::path& from);
    /// The same of an open file, whatever its name.
    [[nodiscard]] static std::optional<ID3Tag> read(const FileBytes& from);

    /// Puts `tag` in the place of the file's tag, in place, or in a copy of the file at `andSaveTo` (replaced
    /// if it exists). What can be refused (tagTooBig, invalidTagData, corruptedFile) is refused before the
    /// file is touched; a failure after that leaves it undefined: the caller holds a backup. Not synced.
    /// `beforeAudioMoves` is called if the audio has to be copied to another place of the file, which no
    /// power cut may interrupt without a backup on the disk; mostly only the head is written.
    static void write(const ID3Tag& tag, const std::filesystem::path& to,
                      const std::optional<std::filesystem::path>& andSaveTo = std::nullopt,
                      const std::function<void()>& beforeAudioMoves = {});

    /// Whether both files hold the same bytes after their tags. Throws if one of them cannot be read.
    [[nodiscard]] static bool sameAudio(const std::filesystem::path& left,
                                        const std::filesystem::path& right);
    [[nodiscard]] static bool sameAudio(const FileBytes& left, const FileBytes& right);
};

} // namespace velto::id3
