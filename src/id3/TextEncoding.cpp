#include "id3/TextEncoding.hpp"

namespace velto::id3 {

TextForm textForm(std::uint8_t encodingByte, ID3Version version) {
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

std::pair<ByteView, ByteView> splitAtTerminator(ByteView bytes, TextForm form) {
    const auto [first, rest] = text::splitAtTerminator(asText(bytes), form);
    return {bytes.first(first.size()), bytes.last(rest.size())};
}

std::string textUpToTerminator(ByteView bytes, TextForm form) {
    return text::toUtf8(text::splitAtTerminator(asText(bytes), form).first, form);
}

std::optional<Bytes> latin1Bytes(std::string_view text) {
    Bytes out;
    while (!text.empty()) {
        const char32_t point = text::takeUtf8(text);
        if (point > 0xFF) return std::nullopt;
        out.push_back(static_cast<std::uint8_t>(point));
    }
    return out;
}

Bytes utf16Bytes(std::string_view text) {
    Bytes out{0xFF, 0xFE};
    const auto unit = [&](char32_t value) {
        out.push_back(static_cast<std::uint8_t>(value & 0xFF));
        out.push_back(static_cast<std::uint8_t>(value >> 8));
    };
    while (!text.empty()) {
        const char32_t point = text::takeUtf8(text);
        if (point < 0x10000) {
            unit(point);
        } else {
            unit(0xD800 + ((point - 0x10000) >> 10));
            unit(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    return out;
}

void appendTerminator(Bytes& content, ID3StringEncoding encoding) {
    content.insert(content.end(), encoding == ID3StringEncoding::UTF16 ? 2 : 1, 0);
}

std::string TextValues::joined() const {
    std::string text;
    for (const std::string& value : values) {
        if (!text.empty()) text += '/';
        text += value;
    }
    return text;
}

TextValues textValues(ByteView content, ID3Version version) {
    const TextForm form = textForm(content[0], version);
    return {form, text::terminatedTexts(asText(content.subspan(1)), form)};
}

} // namespace velto::id3
