#pragma once

#include "tagwriting/mp3/FileBytes.hpp"

#include <filesystem>
#include <functional>
#include <optional>

namespace velto::id3 {

/// Header and body of the tag at the head of an MP3 file, whose audio is not read; nothing if the file has
/// none (a file shorter than a header has none). Throws invalidFileFormat if the extension is not mp3,
/// corruptedFile if the tag declares more than the file has (before that much memory is asked for),
/// SystemError.
[[nodiscard]] std::optional<Bytes> readTag(const std::filesystem::path& path);
[[nodiscard]] std::optional<Bytes> readTag(const FileBytes& file);

/// Bytes at the head of the file that belong to its tag: header, body and, in version 2.4, the footer; 0
/// without a tag. Everything after it is audio to us: a second tag, ID3v1, APE. Throws as readTag.
[[nodiscard]] off_t tagLength(const FileBytes& file);

/// Whether "ID3" is at the head but is not a tag that we know: an unknown version or revision, or a file that
/// ends inside the header. A tag in front would turn it into audio and hide what it says.
[[nodiscard]] bool hasForeignTag(const FileBytes& file);

/// How a new tag takes the old one's place.
struct TagPlan {
    enum class Step {
        headOnly,      ///< the new tag fills the old one's room
        insertInFront, ///< the file grows by whole blocks in front; the audio is not copied
        moveAudio,     ///< the audio moves to the end of the new tag
    };
    Step step;
    off_t oldLength; ///< of the tag in the file
    off_t newLength; ///< with padding

    /// Plans for a new tag of `tagSize` bytes (header included, no padding). A tag that grows leaves 1 KiB or
    /// more of padding, so that the next write needs the head only; a room far too large is given up.
    [[nodiscard]] static TagPlan make(const FileBytes& file, std::size_t tagSize);
};

/// Writes `tag`, which has the planned length, in place. The old header goes first and the new one comes
/// last: if the process dies on the way, the file has no valid tag and its audio is not where
/// its backup's is, so that the state in between is never taken for a whole file. `beforeAudioMoves`
/// is called once if the audio has to be copied to another place of the file. Not synced. Throws
/// SystemError; the file is then undefined.
void writeTag(FileBytes& file, const TagPlan& plan, Bytes tag,
              const std::function<void()>& beforeAudioMoves = {});

/// Takes out the room of zeros that a write made in front and did not come to fill; the old tag, or the
/// audio, is at the head again. False if the file does not look like that, or if the file
/// system cannot do it: it is then as it was. Throws SystemError.
[[nodiscard]] bool removeRoom(FileBytes& file);

} // namespace velto::id3
