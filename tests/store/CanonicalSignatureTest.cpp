#include "store/CanonicalSignature.hpp"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(CanonicalSignature, NormalisesTextsAndRoundsTheDurationToTenths) {
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
        {none, none, none, 1.0 / 3.0, "|||0.3"},
        {none, none, none, -0.01, "|||-0.0"},
        {none, none, none, 1e15, "|||1000000000000000.0"},
        {none, none, none, 1e16, "|||1e+16"},
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

} // namespace
} // namespace velto
