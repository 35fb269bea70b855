#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// An absolute moment, held to the microsecond: what the store keeps reads back equal.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

/// Seconds as a double: lengths of songs, waits and elapsed times.
using Seconds = std::chrono::duration<double>;

[[nodiscard]] constexpr std::int64_t microsecondsSince1970(Date date) {
    return date.time_since_epoch().count();
}

[[nodiscard]] constexpr Date dateFromMicroseconds(std::int64_t microseconds) {
    return Date(std::chrono::microseconds(microseconds));
}

/// "2026-05-01T09:30:00.123Z": ISO 8601 in UTC with milliseconds, for JSON and log lines.
[[nodiscard]] std::string iso8601(Date date);

/// Reads the form that iso8601 writes (with or without a fraction); nothing for any other text.
[[nodiscard]] std::optional<Date> dateFromIso8601(std::string_view text);

} // namespace velto
