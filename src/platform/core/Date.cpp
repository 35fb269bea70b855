#include "platform/core/Date.hpp"

#include <fmt/format.h>

#include <charconv>

namespace velto {

std::string iso8601(Date date) {
    using namespace std::chrono;
    const auto day = floor<days>(date);
    const year_month_day ymd(day);
    const hh_mm_ss time(floor<milliseconds>(date - day));
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                       time.hours().count(), time.minutes().count(), time.seconds().count(),
                       time.subseconds().count());
}

namespace {

std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
    int value = 0;
    if (at + count > text.size()) return std::nullopt;
    const char* end = text.data() + at + count;
    if (const auto [stop, error] = std::from_chars(text.data() + at, end, value);
        error != std::errc() || stop != end || value < 0)
        return std::nullopt;
    return value;
}

std::chrono::microseconds fraction(std::string_view text) {
    std::int64_t value = 0;
    std::int64_t unit = 100'000;
    for (const char c : text) {
        value += (c - '0') * unit;
        unit /= 10;
    }
    return std::chrono::microseconds(value);
}

} // namespace

std::optional<Date> dateFromIso8601(std::string_view text) {
    using namespace std::chrono;
    if (text.size() < 20 || text.back() != 'Z' || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
        text[13] != ':' || text[16] != ':')
        return std::nullopt;
    const auto y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2);
    const auto h = digits(text, 11, 2), mi = digits(text, 14, 2), s = digits(text, 17, 2);
    if (!y || !mo || !d || !h || !mi || !s || *h > 23 || *mi > 59 || *s > 60) return std::nullopt;
    const year_month_day ymd(year(*y), month(static_cast<unsigned>(*mo)), day(static_cast<unsigned>(*d)));
    if (!ymd.ok()) return std::nullopt;
    std::string_view rest = text.substr(19, text.size() - 20);
    if (!rest.empty()) {
        if (rest.front() != '.' || rest.size() == 1) return std::nullopt;
        rest.remove_prefix(1);
        if (rest.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    }
    return Date(sys_days(ymd)) + hours(*h) + minutes(*mi) + seconds(*s) + fraction(rest);
}

} // namespace velto
