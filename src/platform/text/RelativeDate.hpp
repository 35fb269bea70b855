#pragma once

#include "platform/core/Date.hpp"

#include <string>

namespace velto::text {

/// How long ago or how far ahead of `now` a date lies, in the largest unit that counts and the user's
/// language: "now", "2 minutes ago", "yesterday", "last week", "2 weeks ago", "in 3 months".
[[nodiscard]] std::string relativeDate(Date date, Date now);

} // namespace velto::text
