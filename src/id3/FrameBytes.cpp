#include "id3/FrameBytes.hpp"

#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3Genre.hpp"
#include "id3/TextEncoding.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace velto::id3 {

namespace {

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// `text` without a terminator; it fits the encoding.
Bytes encoded(std::string_view text, ID3StringEncoding encoding) {
    if (encoding == ID3StringEncoding::UTF16) return utf16Bytes(text);
    if (encoding == ID3StringEncoding::ISO88591) return latin1Bytes(text).value_or(Bytes());
    return {text.begin(), text.end()};
}

ID3StringEncoding encodingOfAnyText(ID3Version version) {
    return version == ID3Version::version4 ? ID3StringEncoding::UTF8 : ID3StringEncoding::UTF16;
}

Bytes textBytes(const std::string& text, ID3StringEncoding encoding) {
    Bytes content{static_cast<std::uint8_t>(encoding)};
    append(content, encoded(text, encoding));
    appendTerminator(content, encoding);
    return content;
}

Bytes textBytes(const std::string& text, ID3Version version) {
    return textBytes(text, isASCII(text) ? ID3StringEncoding::ISO88591 : encodingOfAnyText(version));
}

} // namespace

Bytes contentBytes(const ID3FrameWithStringContent& frame, ID3Version version) {
    const bool goesBack = frame.encoding == ID3StringEncoding::ISO88591 && latin1Bytes(frame.content);
    return goesBack ? textBytes(frame.content, ID3StringEncoding::ISO88591)
                    : textBytes(frame.content, version);
}

Bytes contentBytes(const ID3FrameWithIntegerContent& frame, ID3Version version) {
    return textBytes(frame.value ? std::to_string(*frame.value) : "", version);
}

Bytes contentBytes(const ID3FrameWithLocalizedContent& frame, ID3Version version) {
    if (frame.language.size() != 3) throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
    // One encoding byte rules both texts.
    const bool plain = isASCII(frame.contentDescription) && isASCII(frame.content);
    const auto encoding = plain ? ID3StringEncoding::ISO88591 : encodingOfAnyText(version);
    Bytes content{static_cast<std::uint8_t>(encoding)};
    append(content, asBytes(frame.language));
    append(content, encoded(frame.contentDescription, encoding));
    appendTerminator(content, encoding);
    append(content, encoded(frame.content, encoding));
    return content;
}

Bytes contentBytes(const ID3FrameGenre& frame, ID3Version version) {
    return textBytes(genreText(frame, version), version);
}

Bytes contentBytes(const ID3FramePartOfTotal& frame, ID3Version version) {
    std::string text = frame.text;
    if (text.empty()) text = std::to_string(frame.position);
    if (frame.text.empty() && frame.total) text += "/" + std::to_string(*frame.total);
    return textBytes(text, version);
}

Bytes contentBytes(const ID3FrameAttachedPicture& frame, ID3Version version) {
    const auto configuration = ID3AttachedPictureFrameConfiguration::forVersion(version);
    std::string mime(configuration.mimeType(frame.format));
    if (frame.format == ID3PictureFormat::other) mime = frame.mimeType;
    if (configuration.hasShortFormat) mime.resize(3, ' ');
    Bytes content{static_cast<std::uint8_t>(ID3StringEncoding::ISO88591)};
    content.reserve(frame.picture.size() + mime.size() + 4);
    append(content, encoded(mime, ID3StringEncoding::ISO88591));
    if (!configuration.hasShortFormat) content.push_back(0);
    content.push_back(static_cast<std::uint8_t>(frame.type));
    content.push_back(0); // an empty description
    append(content, frame.picture);
    return content;
}

Bytes contentBytes(const ID3FrameRecordingDateTime& frame, ID3Version version) {
    std::string text = fmt::format("{:04}", frame.year.value_or(0));
    const std::array<std::pair<char, std::optional<int>>, 4> parts{
        {{'-', frame.month}, {'-', frame.day}, {'T', frame.hour}, {':', frame.minute}}};
    for (const auto& [separator, part] : parts) {
        if (!part) break; // a timestamp may end early but not leave something out
        text += fmt::format("{}{:02}", separator, *part);
    }
    return textBytes(text, version);
}

Bytes contentBytes(const ID3FrameRecordingDayMonth& frame, ID3Version version) {
    return textBytes(fmt::format("{:02}{:02}", frame.day, frame.month), version);
}

Bytes contentBytes(const ID3FrameRecordingHourMinute& frame, ID3Version version) {
    return textBytes(fmt::format("{:02}{:02}", frame.hour, frame.minute), version);
}

} // namespace velto::id3
