#include "platform/text/Text.hpp"
#include "platform/text/RegularExpression.hpp"
#include "platform/text/RelativeDate.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace velto::text {
namespace {

struct TextCase {
    std::string in;
    std::string out;
};

TEST(Text, LowerCasingIsUnicodesAndKeepsBrokenBytes) {
    const std::array cases = {
        TextCase{"ABC-xyz", "abc-xyz"},
        TextCase{"BJÖRK ÉÑ", "björk éñ"},
        TextCase{"ÇAĞRI I", "çağri i"}, // not the Turkish rule, whatever the machine's locale
        TextCase{"\xC4\xB0", "i\xCC\x87"},
        TextCase{"МУЗЫКА", "музыка"},
        TextCase{"A\xFF\xC3\x84\xC3", "a\xFF\xC3\xA4\xC3"},
        TextCase{std::string("\0A", 2) + "\xED\xA0\x80", std::string("\0a", 2) + "\xED\xA0\x80"},
    };
    for (const TextCase& each : cases)
        EXPECT_EQ(lowercased(each.in), each.out);
}

TEST(Text, TrimmingTakesUnicodeSeparatorsAndStopsAtBrokenBytes) {
    const std::array cases = {
        TextCase{" \t\r\n a  b \n", "a  b"},
        TextCase{"\u00A0\u2003\u3000x\u2028\u2029\u0085", "x"},
        TextCase{"\u200B", "\u200B"}, // a zero-width space is not a separator
        TextCase{" \x80 ", "\x80"},
        TextCase{"\u3000\xE3\x80", "\xE3\x80"},
        TextCase{" \n ", ""},
    };
    for (const TextCase& each : cases)
        EXPECT_EQ(trimmed(each.in), each.out);
    EXPECT_EQ(trimmedOfBlanks(" \ta\r\u00A0"), "a\r");
}

TEST(Text, ValidityIsStrict) {
    for (const char* valid : {"", "plain", "\u0416\U0001F3B5"})
        EXPECT_TRUE(isValidUtf8(valid)) << valid;
    for (const char* broken : {"\x80", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "ok\xFE"})
        EXPECT_FALSE(isValidUtf8(broken)) << broken;
}

TEST(Text, ComparingIgnoresCaseAndOrdersAccentsByTheirLetter) {
    EXPECT_TRUE(localizedCompareCaseInsensitive("House", "hOUSE") == 0);
    EXPECT_TRUE(localizedCompareCaseInsensitive("éclair", "zebra") < 0);
    EXPECT_TRUE(localizedCompareCaseInsensitive("b", "A") > 0);
}

TEST(RegularExpression, APatternThatWouldNeverEndCountsAsNoMatch) {
    const auto catastrophic = RegularExpression::compile("^(a|aa|a.*)*(a|aa)*b$");
    ASSERT_TRUE(catastrophic);
    const std::string endless(4'000, 'a');
    EXPECT_FALSE(catastrophic->hasMatch(endless));
    for (int i = 0; i < 10'000; ++i) // a library of names like that would take an hour otherwise
        ASSERT_FALSE(catastrophic->hasMatch(endless));
}

TEST(RelativeDate, NamesTheLargestUnitThatCounts) {
    using namespace std::chrono;
    const Date now = sys_days(year(2026) / March / 15) + hours(12);

    struct Case {
        Date date;
        const char* text;
    };

    const std::array cases = {
        Case{now, "now"},
        Case{now - seconds(59), "59 seconds ago"},
        Case{now - seconds(60), "1 minute ago"},
        Case{now - hours(23), "23 hours ago"},
        Case{now - hours(24), "yesterday"},
        Case{now + hours(25), "tomorrow"},
        Case{now - days(6), "6 days ago"},
        Case{now - days(7), "last week"},
        Case{now - days(15), "2 weeks ago"},
        Case{now - days(28), "last month"}, // 15 February: a whole calendar month
        Case{sys_days(year(2025) / December / 16), "2 months ago"},
        Case{sys_days(year(2025) / March / 15) + hours(12), "last year"},
        Case{sys_days(year(2029) / April / 1), "in 3 years"},
    };
    for (const Case& each : cases)
        EXPECT_EQ(relativeDate(each.date, now), each.text);
}

} // namespace
} // namespace velto::text
