#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// The token of a "velto://auth?token=..." URL; nothing, with the reason in the log, where the URL is not
/// one. Log lines show at most the first 20 characters of a token, wherever it stands in the URL.
[[nodiscard]] std::optional<std::string> tokenFromCallback(std::string_view url);

/// The URL for a log line: a token of more than 20 characters is cut after them.
[[nodiscard]] std::string loggableCallback(std::string_view url);

/// The first 20 characters of a token and "...".
[[nodiscard]] std::string tokenPreview(std::string_view token);

} // namespace velto
