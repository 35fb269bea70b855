#include "id3/FrameIdentifiers.hpp"
#include "id3/ID3Genre.hpp"
#include "id3/ID3TagParser.hpp"
#include "id3/TextEncoding.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace velto::id3 {

namespace {

/// Between the values of a text frame that holds several; the standard's own separator of version 2.3.
constexpr std::string_view valueSeparator = "/";

std::string joined(const std::vector<std::string>& values) {
    std::string text;
    for (const std::string& value : values) {
        if (!text.empty()) text += valueSeparator;
        text += value;
    }
    return text;
}

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

struct ID3PartOfTotalStringAdapter {
    static ID3FramePartOfTotal adapt(const std::string& text) {
        ID3FramePartOfTotal part;
        part.text = text;
        part.position = leadingNumber(text).value_or(0);
        if (const auto slash = text.find('/'); slash != text.npos)
            part.total = leadingNumber(std::string_view(text).substr(slash + 1));
        return part;
    }
};

/// The values of a text frame's content, whose first byte tells their encoding.
struct ID3FrameStringContentParser {
    TextForm form;
    std::vector<std::string> values;

    ID3FrameStringContentParser(ByteView content, ID3Version version)
        : form(ID3FrameStringEncodingDetector::detect(content[0], version))
        , values(PaddingRemoverUsingTrimming::texts(content.subspan(1), form)) {}
};

struct ID3FrameStringContentParsingOperation {
    static std::optional<ID3Frame> frame(FrameContent kind, const ID3FrameStringContentParser& content) {
        const auto& [form, values] = content;
        if (kind == FrameContent::genre) return ID3GenreStringAdapter::adapt(values);
        const std::string text = joined(values);
        if (text.empty()) return std::nullopt;
        switch (kind) {
        case FrameContent::integer:
            return ID3FrameWithIntegerContent{leadingNumber(text)};
        case FrameContent::partOfTotal:
            return ID3PartOfTotalStringAdapter::adapt(text);
        default:
            break;
        }
        if (form == TextForm::latin1) return ID3FrameWithStringContent{text, ID3StringEncoding::ISO88591};
        return ID3FrameWithStringContent{text};
    }
};

struct ID3RecordingTimeFrameContentParsingOperation {
    static std::optional<ID3Frame> frame(FrameContent kind, const std::string& text) {
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
};

struct ID3LocalizedFrameContentParsingOperation {
    static std::optional<ID3FrameWithLocalizedContent> frame(ByteView content, ID3Version version) {
        if (content.size() < 4) return std::nullopt;
        const TextForm form = ID3FrameStringEncodingDetector::detect(content[0], version);
        const ByteView language = content.subspan(1, 3);
        const auto [description, text] =
            ID3StringEncodingConverter::splitAtTerminator(content.subspan(4), form);
        return ID3FrameWithLocalizedContent{ID3StringEncodingConverter::toUTF8(language, TextForm::latin1),
                                            ID3StringEncodingConverter::toUTF8(description, form),
                                            ID3StringEncodingConverter::toUTF8(text, form)};
    }
};

struct ID3AttachedPictureFrameContentParsingOperation {
    static bool startsLikeAPicture(ByteView data) {
        static constexpr std::array<std::uint8_t, 3> jpeg{0xFF, 0xD8, 0xFF};
        static constexpr std::array<std::uint8_t, 4> png{0x89, 'P', 'N', 'G'};
        return (data.size() > 3 && std::equal(jpeg.begin(), jpeg.end(), data.begin())) ||
               (data.size() > 4 && std::equal(png.begin(), png.end(), data.begin()));
    }

    static ID3PictureFormat format(std::string mimeType) {
        std::transform(mimeType.begin(), mimeType.end(), mimeType.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        if (mimeType == "jpg" || mimeType == "image/jpeg" || mimeType == "image/jpg")
            return ID3PictureFormat::jpeg;
        if (mimeType == "png" || mimeType == "image/png") return ID3PictureFormat::png;
        return ID3PictureFormat::other;
    }

    static std::optional<ID3FrameAttachedPicture>
    frame(ByteView content, ID3Version version, const ID3AttachedPictureFrameConfiguration& configuration) {
        const TextForm form = ID3FrameStringEncodingDetector::detect(content[0], version);
        content = content.subspan(1);
        // No MIME type, the type, no description, one byte of picture.
        if (content.size() < 4) return std::nullopt;
        auto [mime, rest] = configuration.hasShortFormat
                                ? std::pair(content.first(3), content.subspan(3))
                                : ID3StringEncodingConverter::splitAtTerminator(content, TextForm::latin1);
        if (rest.empty()) return std::nullopt;
        ID3FrameAttachedPicture picture;
        picture.type = static_cast<ID3PictureType>(rest[0]);
        rest = rest.subspan(1);
        ByteView data = ID3StringEncodingConverter::splitAtTerminator(rest, form).second;
        // A description that is said to be UTF-16 but ends in one zero byte: the picture tells where it
        // begins.
        const ByteView narrow = ID3StringEncodingConverter::splitAtTerminator(rest, TextForm::latin1).second;
        if (!startsLikeAPicture(data) && startsLikeAPicture(narrow)) data = narrow;
        if (data.empty()) return std::nullopt;
        picture.picture.assign(data.begin(), data.end());
        std::string mimeType = ID3StringEncodingConverter::toUTF8(mime, TextForm::latin1);
        picture.format = format(mimeType);
        if (picture.format == ID3PictureFormat::other) picture.mimeType = std::move(mimeType);
        return picture;
    }
};

} // namespace

void ID3FrameParser::parse(std::string_view identifier, ByteView content, ID3Tag& tag) {
    const FrameDescription* known = frameDescription(identifier);
    if (known == nullptr) return;
    const ID3Version version = tag.properties.version;
    switch (known->content) {
    case FrameContent::picture:
        // The name decides, not the tag: some 2.3 tags hold frames of 2.2.
        if (auto picture = ID3AttachedPictureFrameContentParsingOperation::frame(
                content, version, {.hasShortFormat = identifier.size() == 3})) {
            const auto name = FrameName::attachedPicture(picture->type);
            tag.frames.try_emplace(name, std::move(*picture));
        }
        return;
    case FrameContent::localized:
        if (auto localized = ID3LocalizedFrameContentParsingOperation::frame(content, version)) {
            const auto name = known->kind == FrameName::lyrics
                                  ? FrameName::unsynchronizedLyrics(localized->language)
                                  : FrameName::comment(localized->language);
            tag.frames.try_emplace(name, std::move(*localized));
        }
        return;
    default:
        break;
    }
    const ID3FrameStringContentParser text(content, version);
    const bool isTime = known->content == FrameContent::dateTime ||
                        known->content == FrameContent::dayMonth ||
                        known->content == FrameContent::hourMinute;
    auto frame =
        isTime ? ID3RecordingTimeFrameContentParsingOperation::frame(known->content, joined(text.values))
               : ID3FrameStringContentParsingOperation::frame(known->content, text);
    if (frame) tag.frames.try_emplace(known->kind, std::move(*frame));
}

} // namespace velto::id3
