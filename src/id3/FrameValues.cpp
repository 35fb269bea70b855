#include "id3/FrameValues.hpp"

#include "id3/TextEncoding.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace velto::id3 {

namespace {

/// The number that `text` begins with; digits alone.
std::optional<int> leadingNumber(std::string_view text) {
    int value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop == text.data() || value < 0) return std::nullopt;
    return value;
}

/// The number at a fixed place of a timestamp.
std::optional<int> numberAt(std::string_view text, std::size_t at, std::size_t length) {
    if (text.size() < at + length) return std::nullopt;
    const auto digits = text.substr(at, length);
    if (digits.find_first_not_of("0123456789") != digits.npos) return std::nullopt;
    return leadingNumber(digits);
}

ID3FramePartOfTotal partOfTotal(const std::string& text) {
    ID3FramePartOfTotal part;
    part.text = text;
    part.position = leadingNumber(text).value_or(0);
    if (const auto slash = text.find('/'); slash != text.npos)
        part.total = leadingNumber(std::string_view(text).substr(slash + 1));
    return part;
}

std::optional<ID3Frame> timeFrame(FrameContent kind, const std::string& text) {
    if (kind == FrameContent::dateTime) {
        const auto year = numberAt(text, 0, 4);
        if (!year) return std::nullopt;
        return ID3FrameRecordingDateTime{year, numberAt(text, 5, 2), numberAt(text, 8, 2),
                                         numberAt(text, 11, 2), numberAt(text, 14, 2)};
    }
    const auto first = numberAt(text, 0, 2);
    const auto second = numberAt(text, 2, 2);
    if (!first || !second) return std::nullopt;
    if (kind == FrameContent::dayMonth) return ID3FrameRecordingDayMonth{*first, *second};
    return ID3FrameRecordingHourMinute{*first, *second};
}

std::optional<ID3Frame> textFrame(FrameContent kind, const TextValues& content) {
    const std::string text = content.joined();
    if (text.empty()) return std::nullopt;
    switch (kind) {
    case FrameContent::integer:
        return ID3FrameWithIntegerContent{leadingNumber(text)};
    case FrameContent::partOfTotal:
        return partOfTotal(text);
    case FrameContent::dateTime:
    case FrameContent::dayMonth:
    case FrameContent::hourMinute:
        return timeFrame(kind, text);
    default:
        break;
    }
    if (content.form == TextForm::latin1) return ID3FrameWithStringContent{text, ID3StringEncoding::ISO88591};
    return ID3FrameWithStringContent{text};
}

std::optional<ID3FrameWithLocalizedContent> localizedFrame(ByteView content, ID3Version version) {
    if (content.size() < 4) return std::nullopt;
    const TextForm form = textForm(content[0], version);
    const ByteView language = content.subspan(1, 3);
    const auto [description, text] = splitAtTerminator(content.subspan(4), form);
    return ID3FrameWithLocalizedContent{textUpToTerminator(language, TextForm::latin1),
                                        textUpToTerminator(description, form),
                                        textUpToTerminator(text, form)};
}

bool startsLikeAPicture(ByteView data) {
    static constexpr std::array<std::uint8_t, 3> jpeg{0xFF, 0xD8, 0xFF};
    static constexpr std::array<std::uint8_t, 4> png{0x89, 'P', 'N', 'G'};
    return (data.size() > 3 && std::equal(jpeg.begin(), jpeg.end(), data.begin())) ||
           (data.size() > 4 && std::equal(png.begin(), png.end(), data.begin()));
}

ID3PictureFormat pictureFormat(std::string mimeType) {
    std::transform(mimeType.begin(), mimeType.end(), mimeType.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (mimeType == "jpg" || mimeType == "image/jpeg" || mimeType == "image/jpg")
        return ID3PictureFormat::jpeg;
    if (mimeType == "png" || mimeType == "image/png") return ID3PictureFormat::png;
    return ID3PictureFormat::other;
}

std::optional<ID3FrameAttachedPicture>
pictureFrame(ByteView content, ID3Version version,
             const ID3AttachedPictureFrameConfiguration& configuration) {
    const TextForm form = textForm(content[0], version);
    content = content.subspan(1);
    // No MIME type, the type, no description, one byte of picture.
    if (content.size() < 4) return std::nullopt;
    const auto [mime, rest] = configuration.hasShortFormat ? std::pair(content.first(3), content.subspan(3))
                                                           : splitAtTerminator(content, TextForm::latin1);
    if (rest.empty()) return std::nullopt;
    ID3FrameAttachedPicture picture;
    picture.type = static_cast<ID3PictureType>(rest[0]);
    const ByteView described = rest.subspan(1);
    ByteView data = splitAtTerminator(described, form).second;
    // A description that is said to be UTF-16 but ends in one zero byte: the picture shows where it begins.
    const ByteView narrow = splitAtTerminator(described, TextForm::latin1).second;
    if (!startsLikeAPicture(data) && startsLikeAPicture(narrow)) data = narrow;
    if (data.empty()) return std::nullopt;
    picture.picture.assign(data.begin(), data.end());
    std::string mimeType = textUpToTerminator(mime, TextForm::latin1);
    picture.format = pictureFormat(mimeType);
    if (picture.format == ID3PictureFormat::other) picture.mimeType = std::move(mimeType);
    return picture;
}

} // namespace

void addFrame(ID3Tag& tag, std::string_view identifier, const FrameDescription& description,
              ByteView content) {
    const ID3Version version = tag.properties.version;
    switch (description.content) {
    case FrameContent::picture:
        // The name decides, not the tag: some 2.3 tags hold frames of 2.2.
        if (auto picture = pictureFrame(content, version, {.hasShortFormat = identifier.size() == 3})) {
            const auto name = FrameName::attachedPicture(picture->type);
            tag.frames.try_emplace(name, std::move(*picture));
        }
        return;
    case FrameContent::localized:
        if (auto localized = localizedFrame(content, version)) {
            const auto name = description.kind == FrameName::lyrics
                                  ? FrameName::unsynchronizedLyrics(localized->language)
                                  : FrameName::comment(localized->language);
            tag.frames.try_emplace(name, std::move(*localized));
        }
        return;
    default:
        if (auto frame = textFrame(description.content, textValues(content, version)))
            tag.frames.try_emplace(description.kind, std::move(*frame));
    }
}

} // namespace velto::id3
