#include "platform/http/Url.hpp"

#include "platform/text/Text.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <memory>

namespace velto::http {

namespace {

bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isSchemeCharacter(char c) {
    return isAlpha(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool equalsIgnoringAsciiCase(std::string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                      [](char a, char b) { return (isAlpha(a) ? static_cast<char>(a | 0x20) : a) == b; });
}

using UrlHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::optional<std::string> part(const UrlHandle& handle, CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(handle.get(), which, &text, 0) != CURLUE_OK) return std::nullopt;
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return std::string(text);
}

/// The items of a query whose escapes are known to be whole.
std::vector<QueryItem> itemsOf(std::string_view query) {
    std::vector<QueryItem> items;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
        const auto equals = pair.find('=');
        QueryItem item;
        item.name = percentDecoded(pair.substr(0, equals)).value_or("");
        if (equals != std::string_view::npos) item.value = percentDecoded(pair.substr(equals + 1));
        items.push_back(std::move(item));
    }
    return items;
}

} // namespace

std::optional<std::string> schemeOf(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    const std::string_view scheme = text.substr(0, colon);
    if (!isAlpha(scheme.front()) || !std::all_of(scheme.begin(), scheme.end(), isSchemeCharacter))
        return std::nullopt;
    return std::string(scheme);
}

std::optional<std::string> hostOf(std::string_view text) {
    if (const auto scheme = schemeOf(text)) text.remove_prefix(scheme->size() + 1);
    if (!text.starts_with("//")) return std::nullopt;
    text.remove_prefix(2);
    text = text.substr(0, text.find_first_of("/?#"));
    if (const auto at = text.rfind('@'); at != std::string_view::npos) text.remove_prefix(at + 1);
    const auto portFrom = text.starts_with('[') ? text.find(':', text.find(']')) : text.find(':');
    text = text.substr(0, portFrom);
    if (text.empty()) return std::nullopt;
    return std::string(text);
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    if (!text::isValidUtf8(decoded)) return std::nullopt;
    return decoded;
}

std::optional<Url> Url::parse(std::string_view text) {
    const auto scheme = schemeOf(text);
    const auto host = hostOf(text);
    if (!scheme || !host || text.find('\0') != std::string_view::npos) return std::nullopt;
    const UrlHandle handle(curl_url(), &curl_url_cleanup);
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, std::string(text).c_str(),
                                CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return std::nullopt;
    const std::string query = part(handle, CURLUPART_QUERY).value_or("");
    // Each part by itself: an escape must not reach over a delimiter, nor a character over two values.
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view piece = rest.substr(0, rest.find_first_of("&=?#/"));
        if (!percentDecoded(piece)) return std::nullopt;
        rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    }
    Url url;
    url.scheme_ = *scheme;
    url.host_ = *host;
    url.queryItems_ = itemsOf(query);
    return url;
}

bool Url::isWeb() const {
    return equalsIgnoringAsciiCase(scheme_, "http") || equalsIgnoringAsciiCase(scheme_, "https");
}

} // namespace velto::http
