#pragma once

#include "media/FileReader.hpp"
#include "media/Id3Frames.hpp"

namespace velto::media {

/// One function for each kind of file. `begin` is where the container's own signature is: after any ID3v2
/// tags, which FLAC, MP3 and raw AAC may have in front. Each throws MediaError if the file is not sound of
/// its kind.
enum class MpegKind { layers, adts };
[[nodiscard]] Asset openMpeg(FileReader& reader, MpegKind kind);
[[nodiscard]] Asset openFlac(FileReader& reader);
[[nodiscard]] Asset openWave(FileReader& reader);
[[nodiscard]] Asset openAiff(FileReader& reader);
[[nodiscard]] Asset openMp4(FileReader& reader);

/// Where the ID3v2 tags at the head of a file end; several may follow one another.
struct LeadingId3 {
    std::vector<Id3Frames> tags;
    std::uint64_t end = 0;

    [[nodiscard]] bool hasFrames() const;
    /// The texts of all; those of a tag in front count before those after it. The genre is that of the first
    /// alone, because only there it is ever written or taken out.
    void appendItemsTo(std::vector<MetadataItem>& items) const;
};

[[nodiscard]] LeadingId3 leadingId3(FileReader& reader);

} // namespace velto::media
