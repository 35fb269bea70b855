#pragma once

#include "platform/text/RegularExpression.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// A library's include or exclude pattern as a scan reads it, made ready once for many names. Immutable.
class Glob {
  public:
    explicit Glob(std::string_view pattern);

    /// Whether the pattern takes the file; `path` may have folders in front, which take no part.
    [[nodiscard]] bool matches(std::string_view path) const;

    /// Whether the pattern took too long on a name: what matches() says since then is worth nothing.
    [[nodiscard]] bool isGivenUp() const { return expression_ && expression_->isGivenUp(); }

  private:
    bool byExtension_ = false;
    std::vector<std::string> extensions_;               ///< lower case
    std::optional<text::RegularExpression> expression_; ///< of the whole name
    std::string substring_;                             ///< where the expression does not compile
};

/// `text` with every `from` replaced, left to right.
[[nodiscard]] std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);

/// The pieces between the `separator`s, without blanks around them; empty ones stay.
[[nodiscard]] std::vector<std::string> splitAndTrim(std::string_view text, char separator);

/// The text between the first "{" and the first "}"; absent without both. Empty if they come the other
/// way round.
[[nodiscard]] std::optional<std::string_view> braceList(std::string_view pattern);

} // namespace velto
