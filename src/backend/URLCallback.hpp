#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// The token of a "velto://auth?token=..." URL; nothing, with the reason in the log, if the URL is not one.
/// Log lines show at most the first 20 characters of a token, whatever characters it has and wherever in the
/// text it stands: people paste the bare token, too.
[[nodiscard]] std::optional<std::string> tokenFromCallback(std::string_view url);

/// The URL for a log line: "velto://auth", what comes before "token=", and what follows it, each of the last
/// two cut after 20 characters. Of any other text, only the first 20 characters.
[[nodiscard]] std::string loggableCallback(std::string_view url);

/// The first 20 characters of a token and "...".
[[nodiscard]] std::string tokenPreview(std::string_view token);

} // namespace velto
