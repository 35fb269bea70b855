#pragma once

#include <string>
#include <string_view>

namespace velto::text {

/// Appends `text` with its control characters and whatever is not UTF-8 written out (\n, \xNN), so that it
/// stays one line and cannot steer a terminal: names of files, tags and servers' texts hold any byte. A tab
/// stays.
void appendPrintable(std::string& out, std::string_view text);

[[nodiscard]] std::string printable(std::string_view text);

/// As printable; line breaks stay.
[[nodiscard]] std::string printableLines(std::string_view text);

} // namespace velto::text
