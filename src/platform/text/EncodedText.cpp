#include "platform/text/EncodedText.hpp"

#include "platform/text/Text.hpp"

#include <array>
#include <optional>

namespace velto::text {

namespace {

constexpr char32_t replacement = 0xFFFD;

enum class ByteOrder { little, big };

unsigned byteAt(std::string_view bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

std::string fromUtf8(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    if (isValidUtf8(bytes)) return std::string(bytes);
    std::string out;
    while (!bytes.empty())
        appendUtf8(out, takeUtf8(bytes));
    return out;
}

/// Most texts have many characters below 256: their zero bytes give the order away.
ByteOrder likelierOrder(std::string_view bytes) {
    std::size_t zerosAtEven = 0;
    std::size_t zerosAtOdd = 0;
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        zerosAtEven += bytes[index] == '\0' ? 1U : 0U;
        zerosAtOdd += bytes[index + 1] == '\0' ? 1U : 0U;
    }
    return zerosAtEven > zerosAtOdd ? ByteOrder::big : ByteOrder::little;
}

/// Takes a byte-order mark off.
std::optional<ByteOrder> takeMark(std::string_view& bytes) {
    const bool isLittle = bytes.starts_with("\xFF\xFE");
    if (!isLittle && !bytes.starts_with("\xFE\xFF")) return std::nullopt;
    bytes.remove_prefix(2);
    return isLittle ? ByteOrder::little : ByteOrder::big;
}

std::string fromUtf16(std::string_view bytes, ByteOrder order) {
    std::string out;
    const auto unit = [&](std::size_t index) -> char32_t {
        const unsigned first = byteAt(bytes, index);
        const unsigned second = byteAt(bytes, index + 1);
        return order == ByteOrder::big ? first << 8U | second : second << 8U | first;
    };
    for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
        const char32_t high = unit(index);
        const char32_t low =
            high >= 0xD800 && high < 0xDC00 && index + 3 < bytes.size() ? unit(index + 2) : 0;
        const bool isPair = low >= 0xDC00 && low <= 0xDFFF;
        appendUtf8(out, isPair ? 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00) : high);
        if (isPair) index += 2;
    }
    return out;
}

std::string decode(std::string_view bytes, Encoding encoding, std::optional<ByteOrder>& order) {
    if (encoding == Encoding::utf8) return fromUtf8(bytes);
    if (encoding == Encoding::latin1) {
        std::string out;
        for (const char c : bytes)
            appendUtf8(out, static_cast<unsigned char>(c));
        return out;
    }
    if (const auto marked = takeMark(bytes))
        order = marked;
    else if (!order)
        order = encoding == Encoding::utf16BigEndian ? ByteOrder::big : likelierOrder(bytes);
    return fromUtf16(bytes, *order);
}

} // namespace

void appendUtf8(std::string& text, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = replacement;
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | c >> 6);
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0 | c >> 12);
        text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | c >> 18);
        text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    }
}

char32_t takeUtf8(std::string_view& bytes) {
    const unsigned lead = byteAt(bytes, 0);
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    constexpr std::array<char32_t, 5> leastPoint{0, 0, 0x80, 0x800, 0x10000};
    char32_t point = length < 2 ? lead : lead & (0x7FU >> length);
    bool sound = length != 0 && length <= bytes.size();
    for (std::size_t index = 1; sound && index < length; ++index) {
        sound = (byteAt(bytes, index) & 0xC0) == 0x80;
        point = point << 6 | (byteAt(bytes, index) & 0x3FU);
    }
    sound = sound && point >= leastPoint[length] && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
    bytes.remove_prefix(sound ? length : 1);
    return sound ? point : replacement;
}

std::string toUtf8(std::string_view bytes, Encoding encoding) {
    std::optional<ByteOrder> order;
    return decode(bytes, encoding, order);
}

std::string toUtf8OrLatin1(std::string_view bytes) {
    return isValidUtf8(bytes) ? std::string(bytes) : toUtf8(bytes, Encoding::latin1);
}

std::pair<std::string_view, std::string_view> splitAtTerminator(std::string_view bytes, Encoding encoding) {
    const std::size_t width = encoding == Encoding::utf16 || encoding == Encoding::utf16BigEndian ? 2 : 1;
    for (std::size_t index = 0; index + width <= bytes.size(); index += width)
        if (bytes[index] == '\0' && bytes[index + width - 1] == '\0')
            return {bytes.substr(0, index), bytes.substr(index + width)};
    return {bytes, {}};
}

std::vector<std::string> terminatedTexts(std::string_view bytes, Encoding encoding) {
    std::vector<std::string> texts;
    std::optional<ByteOrder> order;
    while (!bytes.empty()) {
        const auto [first, rest] = splitAtTerminator(bytes, encoding);
        if (std::string text = decode(first, encoding, order); !text.empty())
            texts.push_back(std::move(text));
        bytes = rest;
    }
    return texts;
}

} // namespace velto::text
