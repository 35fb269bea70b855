#include "platform/http/Url.hpp"

#include <gtest/gtest.h>

namespace velto::http {
namespace {

TEST(Url, DecodesTheItemsOfAQuery) {
    using Items = std::vector<QueryItem>;
    const std::pair<const char*, Items> rows[] = {
        {"velto://auth", {}},
        {"velto://auth?", {}},
        {"velto://auth?token", {{"token", std::nullopt}}},
        {"velto://auth?token=", {{"token", ""}}},
        {"velto://auth?a=1&token=x=y", {{"a", "1"}, {"token", "x=y"}}},
        {"velto://auth?t%6Fken=%C3%A9%26%0d%0a+b#token=no", {{"token", "\xC3\xA9&\r\n+b"}}},
        {"velto://auth?&&a=1", {{"", std::nullopt}, {"", std::nullopt}, {"a", "1"}}},
    };
    for (const auto& [text, items] : rows) {
        const auto url = Url::parse(text);
        ASSERT_TRUE(url) << text;
        EXPECT_EQ(url->queryItems(), items) << text;
    }
}

TEST(Url, RefusesWhatIsBroken) {
    for (const std::string& text :
         {std::string("velto://auth?token=%"), std::string("velto://auth?token=%4"),
          std::string("velto://auth?token=%zz"), std::string("velto://auth?token=%ff"),
          std::string("velto://auth?token=%C3&x=%A9"), std::string("velto://au th?token=a"),
          std::string("velto://auth?token=a\nb"), std::string("velto://auth\0.org?token=a", 25),
          std::string("http://host:port/"), std::string("http://host:99999/"), std::string("http:///path")})
        EXPECT_FALSE(Url::parse(text)) << text;
}

} // namespace
} // namespace velto::http
