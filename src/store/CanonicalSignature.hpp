#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// Names a song independently of file and machine: artist, title and album lower-cased and trimmed, and the
/// duration to a tenth of a second, joined by "|" ("a|b|c|215.3"). Absent texts are empty, an absent duration
/// is 0.0. The backend and stored tracks hold this text: its form must not change. Any thread.
[[nodiscard]] std::string canonicalSig(const std::optional<std::string>& artist,
                                       const std::optional<std::string>& title,
                                       const std::optional<std::string>& album,
                                       std::optional<double> durationSec);

/// The beginning of a signature, for log lines, cut between characters.
[[nodiscard]] std::string_view beginningOf(std::string_view signature);

} // namespace velto
