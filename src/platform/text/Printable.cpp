#include "platform/text/Printable.hpp"

#include <fmt/format.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace velto::text {

namespace {

bool isPlain(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 0x20 && byte < 0x7f) || byte == '\t';
}

void appendEscaped(std::string& out, unsigned value) {
    fmt::format_to(std::back_inserter(out), "\\x{:02x}", value);
}

} // namespace

void appendPrintable(std::string& out, std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto plainEnd =
            std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), isPlain);
        const auto end = static_cast<std::size_t>(plainEnd - text.begin());
        out.append(text, at, end - at);
        if (end == text.size()) return;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + end;
        const auto left = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - end, 4));
        std::int32_t used = 0;
        UChar32 character = 0;
        U8_NEXT(bytes, used, left, character);
        if (character == '\n')
            out += "\\n";
        else if (character < 0)
            std::for_each_n(bytes, used, [&](std::uint8_t byte) { appendEscaped(out, byte); });
        else if (character < 0xA0) // terminals obey the controls U+0080 to U+009F, too
            appendEscaped(out, static_cast<unsigned>(character));
        else
            out.append(text, end, static_cast<std::size_t>(used));
        at = end + static_cast<std::size_t>(used);
    }
}

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    appendPrintable(out, text);
    return out;
}

std::string printableLines(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (true) {
        const auto end = text.find('\n');
        appendPrintable(out, text.substr(0, end));
        if (end == text.npos) return out;
        out += '\n';
        text.remove_prefix(end + 1);
    }
}

} // namespace velto::text
