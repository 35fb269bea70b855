#include "id3/ID3FrameCreators.hpp"

#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3Genre.hpp"
#include "id3/TextEncoding.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace velto::id3 {

namespace {

void append(Bytes& out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// `text` without a terminator.
Bytes encoded(std::string_view text, ID3StringEncoding encoding) {
    if (encoding == ID3StringEncoding::UTF16) return ID3UTF16StringToByteAdapter::adapt(text);
    if (encoding == ID3StringEncoding::ISO88591)
        return ID3ISO88591StringToByteAdapter::adapt(text).value_or(Bytes());
    return {text.begin(), text.end()};
}

ID3FrameFromStringContentCreator forAnyText(ID3Version version) {
    if (version == ID3Version::version4) return {ID3StringEncoding::UTF8};
    return ID3FrameFromStringContentCreatorWithUTF16EncodingFactory::make();
}

Bytes textContent(const std::string& text, ID3Version version) {
    return ID3FrameFromStringContentCreator::forText({text}, version).create(text);
}

} // namespace

ID3FrameFromStringContentCreator
ID3FrameFromStringContentCreator::forText(const ID3FrameWithStringContent& text, ID3Version version) {
    const bool cameAsISO88591 = text.encoding == ID3StringEncoding::ISO88591;
    if (isASCII(text.content) || (cameAsISO88591 && ID3ISO88591StringToByteAdapter::adapt(text.content)))
        return ID3FrameFromStringContentCreatorWithISO88591EncodingFactory::make();
    return forAnyText(version);
}

Bytes ID3FrameFromStringContentCreator::create(const std::string& text) const {
    Bytes content{static_cast<std::uint8_t>(encoding)};
    append(content, encoded(text, encoding));
    PaddingAdderToEndOfContentUsingNullChar::add(content, encoding);
    return content;
}

Bytes ID3LocalizedFrameCreator::create(const ID3FrameWithLocalizedContent& frame, ID3Version version) {
    if (frame.language.size() != 3) throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
    // One encoding byte rules both texts.
    const bool plain = isASCII(frame.contentDescription) && isASCII(frame.content);
    const auto encoding = plain ? ID3StringEncoding::ISO88591 : forAnyText(version).encoding;
    Bytes content{static_cast<std::uint8_t>(encoding)};
    append(content, bytesOf(frame.language));
    append(content, encoded(frame.contentDescription, encoding));
    PaddingAdderToEndOfContentUsingNullChar::add(content, encoding);
    append(content, encoded(frame.content, encoding));
    return content;
}

Bytes ID3AttachedPicturesFramesCreator::create(const ID3FrameAttachedPicture& frame, ID3Version version) {
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

Bytes ID3GenreFrameCreator::create(const ID3FrameGenre& frame, ID3Version version) {
    return textContent(ID3GenreStringAdapter::content(frame, version), version);
}

Bytes ID3TrackPositionFrameCreator::create(const ID3FramePartOfTotal& frame, ID3Version version) {
    std::string text = frame.text;
    if (text.empty()) text = std::to_string(frame.position);
    if (frame.text.empty() && frame.total) text += "/" + std::to_string(*frame.total);
    return textContent(text, version);
}

std::string ID3TimestampCreator::create(const ID3FrameRecordingDateTime& time) {
    std::string text = fmt::format("{:04}", time.year.value_or(0));
    const std::array<std::pair<char, std::optional<int>>, 4> parts{
        {{'-', time.month}, {'-', time.day}, {'T', time.hour}, {':', time.minute}}};
    for (const auto& [separator, part] : parts) {
        if (!part) break; // a timestamp may end early but not leave something out
        text += fmt::format("{}{:02}", separator, *part);
    }
    return text;
}

Bytes ID3RecordingDateTimeFrameCreator::create(const ID3FrameRecordingDateTime& frame, ID3Version version) {
    return textContent(ID3TimestampCreator::create(frame), version);
}

Bytes ID3RecordingDayMonthFrameCreator::create(const ID3FrameRecordingDayMonth& frame, ID3Version version) {
    return textContent(fmt::format("{:02}{:02}", frame.day, frame.month), version);
}

Bytes ID3RecordingHourMinuteFrameCreator::create(const ID3FrameRecordingHourMinute& frame,
                                                 ID3Version version) {
    return textContent(fmt::format("{:02}{:02}", frame.hour, frame.minute), version);
}

} // namespace velto::id3
