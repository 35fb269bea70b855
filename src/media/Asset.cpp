#include "media/Asset.hpp"

#include "media/Containers.hpp"
#include "platform/text/PathParts.hpp"

#include <fmt/format.h>

#include <new>

namespace velto::media {

namespace {

std::string_view text(MediaError::Case kind) {
    switch (kind) {
    case MediaError::Case::cannotOpen:
        return "Cannot open";
    case MediaError::Case::notAudio:
        return "Not an audio file";
    case MediaError::Case::damaged:
        return "Damaged audio file";
    case MediaError::Case::unsupportedContainer:
        return "Cannot rewrite this kind of file";
    case MediaError::Case::cannotWrite:
        return "Cannot write";
    }
    return "";
}

bool isMp4(std::string_view head) {
    const std::string_view name = head.size() >= 8 ? head.substr(4, 4) : std::string_view();
    return name == "ftyp" || name == "moov" || name == "mdat" || name == "free" || name == "skip" ||
           name == "wide";
}

Asset open(FileReader& reader) {
    if (reader.size() == 0) reader.fail(MediaError::Case::notAudio, "it is empty");
    const std::string head(reader.at(0, 12));
    if (isMp4(head)) return openMp4(reader);
    if (head.starts_with("RIFF") || head.starts_with("RF64")) return openWave(reader);
    if (head.starts_with("FORM")) return openAiff(reader);
    if (head.starts_with("fLaC")) return openFlac(reader);
    const std::string extension = lowercasedExtension(reader.path().native());
    if (extension == "flac" && reader.at(leadingId3(reader).end, 4) == "fLaC") return openFlac(reader);
    if (extension == "aac") return openMpeg(reader, MpegKind::adts);
    if (extension == "mp3") return openMpeg(reader, MpegKind::layers);
    reader.fail(MediaError::Case::notAudio, "its content is not of its kind");
}

} // namespace

MediaError::MediaError(Case kind, const std::filesystem::path& path, std::string_view detail)
    : Error(detail.empty() ? fmt::format("{}: {}", text(kind), path.native())
                           : fmt::format("{}: {}: {}", text(kind), path.native(), detail))
    , kind_(kind) {}

Asset openAsset(const std::filesystem::path& path) {
    try {
        FileReader reader(path);
        return open(reader);
    } catch (const MediaError&) {
        throw;
    } catch (const std::exception& error) { // TagLib lets what its containers throw come through
        throw MediaError(MediaError::Case::damaged, path, error.what());
    }
}

} // namespace velto::media
