#include "store/CanonicalSignature.hpp"

#include "platform/text/Text.hpp"

#include <array>
#include <charconv>
#include <cmath>

namespace velto {

namespace {

void appendNormalised(std::string& signature, const std::optional<std::string>& text) {
    if (text) signature += text::trimmedView(text::lowercased(*text));
    signature += '|';
}

/// The shortest decimal form that reads back as the same number of tenths, with a fractional part ("0.0",
/// "215.3"); above 2^53 with an exponent ("1e+16").
std::string shortestDecimal(double tenths) {
    const bool isPlain = std::abs(tenths) <= 0x1p53;
    std::array<char, 40> buffer{};
    const auto format = isPlain ? std::chars_format::fixed : std::chars_format::scientific;
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), tenths, format);
    std::string text(buffer.data(), end);
    if (isPlain && text.find('.') == std::string::npos) text += ".0";
    return text;
}

} // namespace

std::string canonicalSig(const std::optional<std::string>& artist, const std::optional<std::string>& title,
                         const std::optional<std::string>& album, std::optional<double> durationSec) {
    std::string signature;
    signature.reserve((artist ? artist->size() : 0) + (title ? title->size() : 0) +
                      (album ? album->size() : 0) + 12);
    appendNormalised(signature, artist);
    appendNormalised(signature, title);
    appendNormalised(signature, album);
    signature += shortestDecimal(durationSec ? std::round(*durationSec * 10.0) / 10.0 : 0.0);
    return signature;
}

std::string_view beginningOf(std::string_view signature) {
    constexpr std::size_t shownBytes = 50;
    if (signature.size() <= shownBytes) return signature;
    std::size_t end = shownBytes;
    while (end > 0 && (static_cast<unsigned char>(signature[end]) & 0xC0U) == 0x80U)
        --end;
    return signature.substr(0, end);
}

} // namespace velto
