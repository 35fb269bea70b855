#include "store/CanonicalSignature.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace velto {
namespace {

TEST(CanonicalSignature, NormalisesTextsAndRoundsTheDuration) {
    using Text = std::optional<std::string>;
    const Text none;

    struct Case {
        Text artist, title, album;
        std::optional<double> duration;
        const char* expected;
    };

    const std::vector<Case> cases{
        {none, none, none, std::nullopt, "|||0.0"},
        {none, none, none, 215.34, "|||215.3"},
        {"  Daft  Punk ", "ONE\n", "\tDisco", 215.26, "daft  punk|one|disco|215.3"},
        {"daft  punk", "One", "disco ", 215.34, "daft  punk|one|disco|215.3"},
        {"Signal Quartet", "One", "Disco", 1234, "signal quartet|one|disco|1234.0"},
        {"\u00A0\u2003ÄÖÜ\u2028", "a|b", "", 0.05, "äöü|a|b||0.1"},
        {"ΣΊΣΥΦΟΣ", "İ", "É", 0.04, "σίσυφος|i̇|é|0.0"},
        {"\xFF"
         "A",
         "x", "y", 59.95,
         "\xFF"
         "a|x|y|60.0"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(canonicalSig(c.artist, c.title, c.album, c.duration), c.expected);
}

TEST(CanonicalSignature, PrintsDoublesInTheirShortestFormWithAFraction) {
    const std::vector<std::pair<double, const char*>> cases{
        {0.0, "0.0"},
        {-0.0, "-0.0"},
        {0.1, "0.1"},
        {215.3, "215.3"},
        {100000.0, "100000.0"},
        {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},
        {1.5e300, "1.5e+300"},
        {0.0001, "0.0001"},
        {0.00005, "5e-05"},
        {1.0 / 3.0, "0.3333333333333333"},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(shortestDecimal(value), expected);
}

} // namespace
} // namespace velto
