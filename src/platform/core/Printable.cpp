#include "platform/core/Printable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace velto {

namespace {

/// Terminals obey the controls U+0080 to U+009F too; in UTF-8 they are this byte and one below 0xA0.
constexpr char leadOfHighControls = '\xC2';

bool mayBeControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == leadOfHighControls;
}

} // namespace

void appendPrintable(std::string& out, std::string_view text) {
    for (auto at = text.begin(); at != text.end();) {
        const auto stop = std::find_if(at, text.end(), mayBeControl);
        out.append(at, stop);
        if (stop == text.end()) return;
        at = std::next(stop);
        const bool isHigh = *stop == leadOfHighControls;
        if (*stop == '\n')
            out += "\\n";
        else if (*stop == '\t' || (isHigh && (at == text.end() || static_cast<unsigned char>(*at) >= 0xA0)))
            out += *stop;
        else
            fmt::format_to(std::back_inserter(out), "\\x{:02x}",
                           static_cast<unsigned char>(isHigh ? *at++ : *stop));
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

} // namespace velto
