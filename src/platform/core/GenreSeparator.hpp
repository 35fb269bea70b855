#pragma once

#include <string_view>

namespace velto {

/// Between the genres of one genre text, in files, in the store and on the screen. The user's files hold it:
/// do not change.
inline constexpr std::string_view genreSeparator = " - ";

} // namespace velto
