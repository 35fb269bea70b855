#include "platform/text/RegularExpression.hpp"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace velto::text {

namespace {

/// Steps of ICU's matcher, some 10,000 instructions each: about a quarter of a second at most.
constexpr std::int32_t timeLimitSteps = 1'000;
constexpr std::int32_t stackLimitBytes = 8 << 20;
/// Names and paths are matched, which are shorter by far.
constexpr std::size_t textLimitBytes = std::size_t{16} << 20;

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

} // namespace

struct RegularExpression::Pattern {
    explicit Pattern(std::unique_ptr<icu::RegexPattern> pattern)
        : compiled(std::move(pattern)) {}

    std::unique_ptr<icu::RegexPattern> compiled;
    mutable std::atomic<bool> isGivenUp = false; ///< it ran into a limit: a million names must not do so each
};

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern) {
    if (pattern.size() > textLimitBytes) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    UParseError where;
    std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(unicode(pattern), UREGEX_CASE_INSENSITIVE, where, status));
    if (U_FAILURE(status) || !compiled) return std::nullopt;
    return RegularExpression(std::make_shared<const Pattern>(std::move(compiled)));
}

bool RegularExpression::isGivenUp() const {
    return pattern_->isGivenUp;
}

bool RegularExpression::hasMatch(std::string_view text) const {
    if (text.size() > textLimitBytes || pattern_->isGivenUp) return false;
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString input = unicode(text);
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern_->compiled->matcher(input, status));
    if (U_FAILURE(status) || !matcher) return false;
    matcher->setTimeLimit(timeLimitSteps, status);
    matcher->setStackLimit(stackLimitBytes, status);
    const bool found = matcher->find(status);
    if (U_FAILURE(status)) pattern_->isGivenUp = true;
    return U_SUCCESS(status) && found;
}

} // namespace velto::text
