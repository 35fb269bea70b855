#include "tagwriting/id3/TextEncoding.hpp"

#include <algorithm>
#include <array>

namespace velto::id3 {

namespace {

constexpr char32_t replacement = 0xFFFD;

void appendUTF8(std::string& out, char32_t point) {
    const auto byte = [&](char32_t value) { out += static_cast<char>(value); };
    if (point < 0x80) {
        byte(point);
    } else if (point < 0x800) {
        byte(0xC0 | point >> 6);
        byte(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        byte(0xE0 | point >> 12);
        byte(0x80 | (point >> 6 & 0x3F));
        byte(0x80 | (point & 0x3F));
    } else {
        byte(0xF0 | point >> 18);
        byte(0x80 | (point >> 12 & 0x3F));
        byte(0x80 | (point >> 6 & 0x3F));
        byte(0x80 | (point & 0x3F));
    }
}

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

std::string fromISO88591(ByteView bytes) {
    std::string out;
    for (const std::uint8_t byte : bytes)
        appendUTF8(out, byte);
    return out;
}

std::string fromUTF8(ByteView bytes) {
    std::string out;
    if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF)
        bytes = bytes.subspan(3);
    while (!bytes.empty())
        appendUTF8(out, takeUTF8(bytes));
    return out;
}

enum class ByteOrder { little, big };

/// Most texts have many characters below 256: their zero bytes tell the order.
ByteOrder likelierOrder(ByteView bytes) {
    std::size_t zerosAtEven = 0;
    std::size_t zerosAtOdd = 0;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        zerosAtEven += bytes[index] == 0 ? 1U : 0U;
        zerosAtOdd += bytes[index + 1] == 0 ? 1U : 0U;
    }
    return zerosAtEven > zerosAtOdd ? ByteOrder::big : ByteOrder::little;
}

/// Takes a byte-order mark off.
std::optional<ByteOrder> takeMark(ByteView& bytes) {
    if (bytes.size() < 2) return std::nullopt;
    const unsigned mark = bytes[0] << 8U | bytes[1];
    if (mark != 0xFFFE && mark != 0xFEFF) return std::nullopt;
    bytes = bytes.subspan(2);
    return mark == 0xFFFE ? ByteOrder::little : ByteOrder::big;
}

std::string fromUTF16(ByteView bytes, ByteOrder order) {
    std::string out;
    const auto unit = [&](std::size_t index) -> char32_t {
        const std::uint8_t first = bytes[index];
        const std::uint8_t second = bytes[index + 1];
        return order == ByteOrder::big ? first << 8U | second : second << 8U | first;
    };
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        const char32_t high = unit(index);
        if (high < 0xD800 || high > 0xDFFF) {
            appendUTF8(out, high);
            continue;
        }
        const char32_t low = high < 0xDC00 && index + 3 < bytes.size() ? unit(index + 2) : 0;
        const bool isPair = low >= 0xDC00 && low <= 0xDFFF;
        appendUTF8(out, isPair ? 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00) : replacement);
        if (isPair) index += 2;
    }
    return out;
}

std::string decode(ByteView bytes, TextForm form, std::optional<ByteOrder>& order) {
    if (form == TextForm::iso88591) return fromISO88591(bytes);
    if (form == TextForm::utf8) return fromUTF8(bytes);
    if (const auto marked = takeMark(bytes))
        order = marked;
    else if (!order)
        order = form == TextForm::utf16BigEndian ? ByteOrder::big : likelierOrder(bytes);
    return fromUTF16(bytes, *order);
}

bool isWide(TextForm form) {
    return form == TextForm::utf16 || form == TextForm::utf16BigEndian;
}

} // namespace

TextForm ID3FrameStringEncodingDetector::detect(std::uint8_t encodingByte, ID3Version version) {
    switch (encodingByte) {
    case 0:
        return TextForm::iso88591;
    case 1:
        return TextForm::utf16;
    case 2:
        return TextForm::utf16BigEndian;
    case 3:
        return TextForm::utf8;
    default:
        return version == ID3Version::version4 ? TextForm::utf8 : TextForm::iso88591;
    }
}

std::pair<ByteView, ByteView> ID3StringEncodingConverter::splitAtTerminator(ByteView bytes, TextForm form) {
    const std::size_t width = isWide(form) ? 2 : 1;
    for (std::size_t index = 0; index + width <= bytes.size(); index += width)
        if (bytes[index] == 0 && bytes[index + width - 1] == 0)
            return {bytes.first(index), bytes.subspan(index + width)};
    return {bytes, {}};
}

std::string ID3StringEncodingConverter::toUTF8(ByteView bytes, TextForm form) {
    std::optional<ByteOrder> order;
    return decode(splitAtTerminator(bytes, form).first, form, order);
}

std::vector<std::string> PaddingRemoverUsingTrimming::texts(ByteView bytes, TextForm form) {
    std::vector<std::string> values;
    std::optional<ByteOrder> order; // later values of a frame often come without a mark of their own
    while (!bytes.empty()) {
        const auto [text, rest] = ID3StringEncodingConverter::splitAtTerminator(bytes, form);
        if (std::string value = decode(text, form, order); !value.empty()) values.push_back(std::move(value));
        bytes = rest;
    }
    return values;
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
