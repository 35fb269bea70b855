#include "platform/model/Uuid.hpp"

#include <sys/random.h>

namespace velto {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

int valueOf(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

bool isDashAt(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

} // namespace

Uuid Uuid::random() {
    Uuid uuid;
    // The system never gives less than was asked for of so few bytes; it only lets signals in between.
    while (::getrandom(uuid.bytes.data(), uuid.bytes.size(), 0) != static_cast<ssize_t>(uuid.bytes.size())) {
    }
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);
    return uuid;
}

std::optional<Uuid> Uuid::fromText(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid uuid;
    std::size_t nibble = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isDashAt(i)) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const int value = valueOf(text[i]);
        if (value < 0) return std::nullopt;
        auto& byte = uuid.bytes[nibble / 2];
        byte = static_cast<std::uint8_t>((byte << 4U) | static_cast<unsigned>(value));
        ++nibble;
    }
    return uuid;
}

std::string Uuid::text() const {
    std::string text;
    text.reserve(36);
    for (const std::uint8_t byte : bytes) {
        if (isDashAt(text.size())) text += '-';
        text += hexDigits[byte >> 4U];
        text += hexDigits[byte & 0x0FU];
    }
    return text;
}

} // namespace velto
