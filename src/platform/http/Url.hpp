#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::http {

/// "name=value" of a query, both percent-decoded; "name" alone has no value.
struct QueryItem {
    std::string name;
    std::optional<std::string> value;

    bool operator==(const QueryItem&) const = default;
};

/// A URL cut at its delimiters. Foreign text comes in: nothing here trusts it.
class Url {
  public:
    /// Nothing if the text is not an absolute URL with an authority, holds control characters or white space,
    /// or holds a broken percent escape.
    [[nodiscard]] static std::optional<Url> parse(std::string_view text);

    [[nodiscard]] const std::string& scheme() const { return scheme_; }

    [[nodiscard]] const std::string& host() const { return host_; }

    [[nodiscard]] const std::vector<QueryItem>& queryItems() const { return queryItems_; }

    /// True for "http" and "https", in any case.
    [[nodiscard]] bool isWeb() const;

  private:
    std::string scheme_;
    std::string host_;
    std::vector<QueryItem> queryItems_;
};

/// What comes before the first colon, as written; nothing if it cannot be a scheme. Any text will do.
[[nodiscard]] std::optional<std::string> schemeOf(std::string_view text);

/// The host after "//" without user and port, as written; nothing if there is none. Any text will do.
[[nodiscard]] std::optional<std::string> hostOf(std::string_view text);

/// The text with its percent escapes decoded ("+" stays); nothing if an escape is broken or the result is
/// not UTF-8.
[[nodiscard]] std::optional<std::string> percentDecoded(std::string_view text);

} // namespace velto::http
