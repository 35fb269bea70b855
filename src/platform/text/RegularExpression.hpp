#pragma once

#include <memory>
#include <optional>
#include <string_view>

namespace velto::text {

/// A compiled pattern that ignores case. Any thread may use it at the same time. Copies share the compiled
/// form.
class RegularExpression {
  public:
    /// Nothing if `pattern` does not compile.
    static std::optional<RegularExpression> compile(std::string_view pattern);

    /// Whether a match exists anywhere in `text`. Bounded in time and memory: a pattern that would search
    /// without end counts as not matching, and is given up.
    [[nodiscard]] bool hasMatch(std::string_view text) const;

    /// Whether a search ran into a bound. From then on nothing matches.
    [[nodiscard]] bool isGivenUp() const;

  private:
    struct Pattern;

    explicit RegularExpression(std::shared_ptr<const Pattern> pattern)
        : pattern_(std::move(pattern)) {}

    std::shared_ptr<const Pattern> pattern_;
};

} // namespace velto::text
