#include "id3/TextEncoding.hpp"

#include <algorithm>
#include <array>

namespace velto::id3 {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// Takes one character off the front; a broken sequence gives the replacement and takes one byte.
char32_t takeUTF8(ByteView& bytes) {
    const std::uint8_t lead = bytes[0];
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    constexpr std::array<char32_t, 5> leastPoint{0, 0, 0x80, 0x800, 0x10000};
    char32_t point = length < 2 ? lead : lead & (0x7FU >> length);
    bool sound = length != 0 && length <= bytes.size();
    for (std::size_t index = 1; sound && index < length; ++index) {
        sound = (bytes[index] & 0xC0) == 0x80;
        point = point << 6 | (bytes[index] & 0x3FU);
    }
    sound = sound && point >= leastPoint[length] && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
    bytes = bytes.subspan(sound ? length : 1);
    return sound ? point : replacement;
}

std::string_view textOf(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

TextForm ID3FrameStringEncodingDetector::detect(std::uint8_t encodingByte, ID3Version version) {
    switch (encodingByte) {
    case 0:
        return TextForm::latin1;
    case 1:
        return TextForm::utf16;
    case 2:
        return TextForm::utf16BigEndian;
    case 3:
        return TextForm::utf8;
    default:
        return version == ID3Version::version4 ? TextForm::utf8 : TextForm::latin1;
    }
}

std::pair<ByteView, ByteView> ID3StringEncodingConverter::splitAtTerminator(ByteView bytes, TextForm form) {
    const auto [first, rest] = text::splitAtTerminator(textOf(bytes), form);
    return {bytes.first(first.size()), bytes.last(rest.size())};
}

std::string ID3StringEncodingConverter::toUTF8(ByteView bytes, TextForm form) {
    return text::toUtf8(text::splitAtTerminator(textOf(bytes), form).first, form);
}

std::vector<std::string> PaddingRemoverUsingTrimming::texts(ByteView bytes, TextForm form) {
    return text::terminatedTexts(textOf(bytes), form);
}

std::optional<Bytes> ID3ISO88591StringToByteAdapter::adapt(std::string_view text) {
    Bytes out;
    ByteView rest(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    while (!rest.empty()) {
        const char32_t point = takeUTF8(rest);
        if (point > 0xFF) return std::nullopt;
        out.push_back(static_cast<std::uint8_t>(point));
    }
    return out;
}

Bytes ID3UTF16StringToByteAdapter::adapt(std::string_view text) {
    Bytes out{0xFF, 0xFE};
    const auto unit = [&](char32_t value) {
        out.push_back(static_cast<std::uint8_t>(value & 0xFF));
        out.push_back(static_cast<std::uint8_t>(value >> 8));
    };
    ByteView rest(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    while (!rest.empty()) {
        const char32_t point = takeUTF8(rest);
        if (point < 0x10000) {
            unit(point);
        } else {
            unit(0xD800 + ((point - 0x10000) >> 10));
            unit(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    return out;
}

void PaddingAdderToEndOfContentUsingNullChar::add(Bytes& content, ID3StringEncoding encoding) {
    content.insert(content.end(), encoding == ID3StringEncoding::UTF16 ? 2 : 1, 0);
}

} // namespace velto::id3
