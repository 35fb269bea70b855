#pragma once

#include <compare>
#include <string>
#include <string_view>

/// Text operations by the rules of Unicode. Texts are UTF-8; no function fails or throws on broken UTF-8, and
/// bytes that are not UTF-8 come through unchanged (a file name may hold any byte). Any thread may call.
namespace velto::text {

/// Full Unicode lower-casing, the same on every machine whatever its locale.
[[nodiscard]] std::string lowercased(std::string_view text);

/// The first character alone, upper-cased; empty for an empty text.
[[nodiscard]] std::string firstLetterUppercased(std::string_view text);

/// Without white space and line breaks at both ends, Unicode's separators included.
[[nodiscard]] std::string trimmed(std::string_view text);

/// trimmed() as a part of `text`, which must outlive it.
[[nodiscard]] std::string_view trimmedView(std::string_view text);

/// Without blanks and tabs at both ends (Unicode's space separators included); line breaks stay.
[[nodiscard]] std::string_view trimmedOfBlanks(std::string_view text);

[[nodiscard]] bool isValidUtf8(std::string_view text);

/// The order of the user's language, upper and lower case alike: how lists of names are sorted for people.
[[nodiscard]] std::weak_ordering localizedCompareCaseInsensitive(std::string_view left,
                                                                 std::string_view right);

} // namespace velto::text
