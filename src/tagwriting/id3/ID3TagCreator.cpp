#include "tagwriting/id3/ID3TagCreator.hpp"

#include "tagwriting/id3/FrameIdentifiers.hpp"
#include "tagwriting/id3/ID3Genre.hpp"
#include "tagwriting/id3/TextEncoding.hpp"

#include <fmt/format.h>

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

ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

struct EncodedText {
    ID3StringEncoding encoding;
    Bytes bytes;
};

/// ISO-8859-1 is written only where no player can misread it, or where the text came in it.
EncodedText encode(const std::string& text, ID3Version version, bool cameAsISO88591 = false) {
    if (isASCII(text) || cameAsISO88591)
        if (auto latin = ID3ISO88591StringToByteAdapter::adapt(text))
            return {ID3StringEncoding::ISO88591, std::move(*latin)};
    if (version == ID3Version::version4) {
        const ByteView bytes = bytesOf(text);
        return {ID3StringEncoding::UTF8, Bytes(bytes.begin(), bytes.end())};
    }
    return {ID3StringEncoding::UTF16, ID3UTF16StringToByteAdapter::adapt(text)};
}

struct ID3FrameFromStringContentCreator {
    static Bytes create(const std::string& text, ID3Version version, bool cameAsISO88591 = false) {
        const EncodedText encoded = encode(text, version, cameAsISO88591);
        Bytes content{static_cast<std::uint8_t>(encoded.encoding)};
        append(content, encoded.bytes);
        PaddingAdderToEndOfContentUsingNullChar::add(content, encoded.encoding);
        return content;
    }
};

struct ID3LocalizedFrameCreator {
    static Bytes create(const ID3FrameWithLocalizedContent& frame, ID3Version version) {
        if (frame.language.size() != 3) throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
        // One encoding byte rules both texts.
        const bool plain = isASCII(frame.contentDescription) && isASCII(frame.content);
        const auto bytes = [&](const std::string& text) {
            return plain ? EncodedText{ID3StringEncoding::ISO88591,
                                       *ID3ISO88591StringToByteAdapter::adapt(text)}
                   : version == ID3Version::version4
                       ? EncodedText{ID3StringEncoding::UTF8, Bytes(text.begin(), text.end())}
                       : EncodedText{ID3StringEncoding::UTF16, ID3UTF16StringToByteAdapter::adapt(text)};
        };
        const EncodedText description = bytes(frame.contentDescription);
        Bytes content{static_cast<std::uint8_t>(description.encoding)};
        append(content, bytesOf(frame.language));
        append(content, description.bytes);
        PaddingAdderToEndOfContentUsingNullChar::add(content, description.encoding);
        append(content, bytes(frame.content).bytes);
        return content;
    }
};

struct ID3AttachedPicturesFramesCreator {
    static Bytes create(const ID3FrameAttachedPicture& frame, ID3Version version) {
        const bool isShort = version == ID3Version::version2;
        std::string mime = frame.format == ID3PictureFormat::jpeg  ? (isShort ? "JPG" : "image/jpeg")
                           : frame.format == ID3PictureFormat::png ? (isShort ? "PNG" : "image/png")
                                                                   : frame.mimeType;
        if (isShort) mime.resize(3, ' ');
        Bytes content{static_cast<std::uint8_t>(ID3StringEncoding::ISO88591)};
        content.reserve(frame.picture.size() + mime.size() + 4);
        append(content, ID3ISO88591StringToByteAdapter::adapt(mime).value_or(Bytes()));
        if (!isShort) content.push_back(0);
        content.push_back(static_cast<std::uint8_t>(frame.type));
        content.push_back(0); // an empty description
        append(content, frame.picture);
        return content;
    }
};

struct ID3TimestampCreator {
    static std::string create(const ID3FrameRecordingDateTime& time) {
        std::string text = fmt::format("{:04}", time.year.value_or(0));
        const std::array<std::pair<char, std::optional<int>>, 4> parts{
            {{'-', time.month}, {'-', time.day}, {'T', time.hour}, {':', time.minute}}};
        for (const auto& [separator, part] : parts) {
            if (!part) break; // a timestamp may end early but not leave something out
            text += fmt::format("{}{:02}", separator, *part);
        }
        return text;
    }
};

std::string partOfTotalText(const ID3FramePartOfTotal& frame) {
    if (!frame.text.empty()) return frame.text;
    return frame.total ? fmt::format("{}/{}", frame.position, *frame.total) : std::to_string(frame.position);
}

/// The content of a frame, by what it holds; `FrameContent` says what its name wants.
struct ContentCreator {
    ID3Version version;

    using Result = std::pair<FrameContent, Bytes>;

    [[nodiscard]] Bytes text(const std::string& content) const {
        return ID3FrameFromStringContentCreator::create(content, version);
    }

    Result operator()(const ID3FrameWithStringContent& frame) const {
        const bool latin = frame.encoding == ID3StringEncoding::ISO88591;
        return {FrameContent::text, ID3FrameFromStringContentCreator::create(frame.content, version, latin)};
    }

    Result operator()(const ID3FrameWithIntegerContent& frame) const {
        return {FrameContent::integer, text(frame.value ? std::to_string(*frame.value) : "")};
    }

    Result operator()(const ID3FrameWithLocalizedContent& frame) const {
        return {FrameContent::localized, ID3LocalizedFrameCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameGenre& frame) const {
        return {FrameContent::genre, text(ID3GenreStringAdapter::content(frame, version))};
    }

    Result operator()(const ID3FramePartOfTotal& frame) const {
        return {FrameContent::partOfTotal, text(partOfTotalText(frame))};
    }

    Result operator()(const ID3FrameAttachedPicture& frame) const {
        return {FrameContent::picture, ID3AttachedPicturesFramesCreator::create(frame, version)};
    }

    Result operator()(const ID3FrameRecordingDateTime& frame) const {
        return {FrameContent::dateTime, text(ID3TimestampCreator::create(frame))};
    }

    Result operator()(const ID3FrameRecordingDayMonth& frame) const {
        return {FrameContent::dayMonth, text(fmt::format("{:02}{:02}", frame.day, frame.month))};
    }

    Result operator()(const ID3FrameRecordingHourMinute& frame) const {
        return {FrameContent::hourMinute, text(fmt::format("{:02}{:02}", frame.hour, frame.minute))};
    }
};

struct ID3FrameHeaderCreator {
    static Bytes create(std::string_view identifier, std::size_t contentSize, ID3Version version) {
        const bool fits = contentSize < (version == ID3Version::version2 ? std::size_t{1} << 24 : sizeLimit);
        if (!fits) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
        const auto size = static_cast<std::uint32_t>(contentSize);
        const auto plain = UInt32ToByteArrayAdapter::bytes(size);
        Bytes header;
        append(header, bytesOf(identifier));
        if (version == ID3Version::version2) {
            append(header, ByteView(plain).subspan(1));
            return header;
        }
        append(header, version == ID3Version::version4 ? SynchsafeIntegerEncoder::encode(size) : plain);
        header.insert(header.end(), 2, 0); // no flags
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
        const auto [held, content] = std::visit(ContentCreator{version}, entry->second);
        if (identifier.empty() || held != description.content)
            throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
        append(out, ID3FrameHeaderCreator::create(identifier, content.size(), version));
        append(out, content);
    }
    return out;
}

Bytes ID3TagCreator::create(const ID3Tag& tag, std::size_t totalSize) {
    const Bytes frames = ID3FramesCreator::create(tag);
    const std::size_t total = std::max(totalSize, frames.size() + ID3TagConfiguration::tagHeaderSizeInBytes);
    if (total >= sizeLimit) throw ID3TagEditorError(ID3TagEditorError::Case::tagTooBig);
    Bytes out = ID3TagHeaderCreator::create(tag.properties.version,
                                            total - ID3TagConfiguration::tagHeaderSizeInBytes);
    out.reserve(total);
    append(out, frames);
    out.resize(total, 0);
    return out;
}

} // namespace velto::id3
