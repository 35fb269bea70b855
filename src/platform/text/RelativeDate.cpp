#include "platform/text/RelativeDate.hpp"

#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

#include <cmath>
#include <memory>

namespace velto::text {

namespace {

struct Distance {
    double amount; ///< negative in the past
    URelativeDateTimeUnit unit;
};

/// Whole calendar months from the earlier to the later date.
int wholeMonths(Date earlier, Date later) {
    using namespace std::chrono;
    const auto dayOfEarlier = floor<days>(earlier), dayOfLater = floor<days>(later);
    const year_month_day from(dayOfEarlier), to(dayOfLater);
    int months = (static_cast<int>(to.year()) - static_cast<int>(from.year())) * 12 +
                 static_cast<int>(static_cast<unsigned>(to.month())) -
                 static_cast<int>(static_cast<unsigned>(from.month()));
    const auto sameDay = to.day() <=> from.day();
    if (sameDay < 0 || (sameDay == 0 && later - dayOfLater < earlier - dayOfEarlier)) --months;
    return months;
}

Distance distance(Date date, Date now) {
    const bool past = date <= now;
    const double sign = past ? -1 : 1;
    const double seconds = std::abs(Seconds(date - now).count());
    const int months = past ? wholeMonths(date, now) : wholeMonths(now, date);
    const auto whole = [&](double secondsAUnit) { return sign * std::floor(seconds / secondsAUnit); };
    const int years = months / 12;
    if (years >= 1) return {sign * years, UDAT_REL_UNIT_YEAR};
    if (months >= 1) return {sign * months, UDAT_REL_UNIT_MONTH};
    if (seconds >= 7 * 86'400) return {whole(7 * 86'400), UDAT_REL_UNIT_WEEK};
    if (seconds >= 86'400) return {whole(86'400), UDAT_REL_UNIT_DAY};
    if (seconds >= 3'600) return {whole(3'600), UDAT_REL_UNIT_HOUR};
    if (seconds >= 60) return {whole(60), UDAT_REL_UNIT_MINUTE};
    return {whole(1), UDAT_REL_UNIT_SECOND};
}

} // namespace

std::string relativeDate(Date date, Date now) {
    const Distance far = distance(date, now);
    UErrorCode status = U_ZERO_ERROR;
    const icu::RelativeDateTimeFormatter formatter(status);
    icu::UnicodeString text;
    std::string out;
    formatter.format(far.amount, far.unit, text, status);
    if (U_SUCCESS(status)) text.toUTF8String(out);
    return out;
}

} // namespace velto::text
