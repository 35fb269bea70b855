#include "id3/ID3TagCreator.hpp"

#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3FrameCreators.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace velto::id3 {

namespace {

constexpr std::size_t sizeLimit = std::size_t{1} << 28;

void append(Bytes& out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

/// The content of a frame, and what a name must want for it to go there.
struct ContentCreator {
    const FrameName& name;
    ID3Version version;

    using Result = std::pair<FrameContent, Bytes>;

    Result operator()(const ID3FrameWithStringContent& frame) const {
        return {FrameContent::text,
                ID3FrameFromStringContentCreator::forText(frame, version).create(frame.content)};
    }

    Result operator()(const ID3FrameWithIntegerContent& frame) const {
        return {FrameContent::integer,
                ID3FrameFromStringContentCreatorWithISO88591EncodingFactory::make().create(
                    frame.value ? std::to_string(*frame.value) : "")};
    }

    Result operator()(const ID3FrameWithLocalizedContent& frame) const {
        return {FrameContent::localized, ID3LocalizedFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameGenre& frame) const {
        return {FrameContent::genre, ID3GenreFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FramePartOfTotal& frame) const {
        return {FrameContent::partOfTotal, name.kind == FrameName::discPosition
                                               ? ID3DiscPositionFrameCreator::create(frame, version)
                                               : ID3TrackPositionFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameAttachedPicture& frame) const {
        return {FrameContent::picture, ID3AttachedPicturesFramesCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameRecordingDateTime& frame) const {
        return {FrameContent::dateTime, ID3RecordingDateTimeFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameRecordingDayMonth& frame) const {
        return {FrameContent::dayMonth, ID3RecordingDayMonthFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameRecordingHourMinute& frame) const {
        return {FrameContent::hourMinute, ID3RecordingHourMinuteFrameCreator::create(frame, version)};
    }
};

/// The size bytes of a frame header.
struct ID3FrameContentSizeCalculator {
    static Bytes calculate(std::size_t contentSize, ID3Version version) {
        const bool fits = contentSize < (version == ID3Version::version2 ? std::size_t{1} << 24 : sizeLimit);
        if (!fits) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
        const auto size = static_cast<std::uint32_t>(contentSize);
        const auto bytes = version == ID3Version::version4
                               ? SynchsafeIntegerEncoder::encode(size)
                               : UInt32ToByteArrayAdapterUsingUnsafePointer::bytes(size);
        return {bytes.begin() + (version == ID3Version::version2 ? 1 : 0), bytes.end()};
    }
};

/// No flag is ever set; version 2.2 has no room for any.
struct ID3FrameFlagsCreator {
    static Bytes create(ID3Version version) { return Bytes(version == ID3Version::version2 ? 0 : 2, 0); }
};

struct ID3FrameHeaderCreator {
    static Bytes create(std::string_view identifier, std::size_t contentSize, ID3Version version) {
        Bytes header(identifier.begin(), identifier.end());
        append(header, ID3FrameContentSizeCalculator::calculate(contentSize, version));
        append(header, ID3FrameFlagsCreator::create(version));
        return header;
    }
};

/// The place of a frame in the tag.
int rank(FrameName::Kind kind) {
    constexpr std::array first{FrameName::title,       FrameName::artist,        FrameName::album,
                               FrameName::albumArtist, FrameName::trackPosition, FrameName::discPosition};
    if (kind == FrameName::genre) return 1001;
    if (kind == FrameName::picture) return 1000;
    const auto found = std::find(first.begin(), first.end(), kind);
    return found != first.end() ? static_cast<int>(found - first.begin()) : 100;
}

} // namespace

Bytes ID3TagHeaderCreator::create(ID3Version version, std::size_t framesLength) {
    if (framesLength >= sizeLimit) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
    Bytes header;
    append(header, ID3TagConfiguration::header(version));
    header.push_back(0); // no flags
    append(header, SynchsafeIntegerEncoder::encode(static_cast<std::uint32_t>(framesLength)));
    return header;
}

Bytes ID3FramesCreator::create(const ID3Tag& tag) {
    using Entry = std::pair<const FrameName, ID3Frame>;
    const ID3Version version = tag.properties.version;
    std::vector<const Entry*> entries;
    for (const Entry& entry : tag.frames)
        entries.push_back(&entry);
    std::stable_sort(entries.begin(), entries.end(), [](const Entry* left, const Entry* right) {
        return rank(left->first.kind) < rank(right->first.kind);
    });
    Bytes out;
    for (const Entry* entry : entries) {
        const FrameDescription& description = frameDescription(entry->first.kind);
        const auto identifier = description.identifier(version);
        const auto [held, content] = std::visit(ContentCreator{entry->first, version}, entry->second);
        if (identifier.empty() || held != description.content)
            throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
        append(out, ID3FrameHeaderCreator::create(identifier, content.size(), version));
        append(out, content);
    }
    return out;
}

Bytes ID3TagCreator::create(const ID3Tag& tag) {
    const Bytes frames = ID3FramesCreator::create(tag);
    Bytes out = ID3TagHeaderCreator::create(tag.properties.version, frames.size());
    if (out.size() + frames.size() >= sizeLimit) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
    append(out, frames);
    return out;
}

} // namespace velto::id3
