#include "backend/URLCallback.hpp"

#include "platform/http/Url.hpp"
#include "platform/log/Log.hpp"

#include <algorithm>
#include <vector>

namespace velto {

namespace {

constexpr std::size_t previewCharacters = 20;

/// The first 20 characters, never a part of one.
std::string_view firstCharacters(std::string_view text) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool startsCharacter = (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
        if (startsCharacter && characters++ == previewCharacters) return text.substr(0, i);
    }
    return text;
}

std::string shortened(std::string_view text) {
    const std::string_view shown = firstCharacters(text);
    return shown.size() < text.size() ? tokenPreview(text) : std::string(text);
}

std::string listed(const std::vector<http::QueryItem>& items) {
    if (items.empty()) return "none";
    std::string text;
    for (const http::QueryItem& item : items) {
        if (!text.empty()) text += ", ";
        text += shortened(item.name);
        if (item.value) text += "=" + shortened(*item.value);
    }
    return "[" + text + "]";
}

std::optional<std::string> tokenIn(const std::vector<http::QueryItem>& items) {
    const auto found = std::find_if(items.begin(), items.end(), [](const http::QueryItem& item) {
        return item.name == "token" && item.value.has_value();
    });
    return found == items.end() ? std::nullopt : found->value;
}

} // namespace

std::string tokenPreview(std::string_view token) {
    return std::string(firstCharacters(token)) + "...";
}

std::string loggableCallback(std::string_view url) {
    constexpr std::string_view start = "velto://auth";
    constexpr std::string_view name = "token=";
    const bool isCallback = url.starts_with(start) && url.find_first_of("/?#", start.size()) == start.size();
    if (!isCallback) return shortened(url);
    const std::string_view rest = url.substr(start.size());
    std::string text(start);
    const std::size_t at = rest.find(name);
    text += shortened(rest.substr(0, at));
    if (at != std::string_view::npos) text += std::string(name) + shortened(rest.substr(at + name.size()));
    return text;
}

std::optional<std::string> tokenFromCallback(std::string_view url) {
    // Whoever pastes something else than the link may paste a bare token.
    const std::string scheme = shortened(http::schemeOf(url).value_or("nil"));
    const std::string host = shortened(http::hostOf(url).value_or("nil"));
    log::line("🔗 [URL CALLBACK] handleURLCallback called");
    log::line("🔗 [URL CALLBACK] URL scheme: {}", scheme);
    log::line("🔗 [URL CALLBACK] URL host: {}", host);
    log::line("🔗 [URL CALLBACK] Full URL: {}", loggableCallback(url));
    if (scheme != "velto") {
        log::line("❌ [URL CALLBACK] Invalid scheme: expected 'velto', got '{}'", scheme);
        return std::nullopt;
    }
    if (host != "auth") {
        log::line("❌ [URL CALLBACK] Invalid host: expected 'auth', got '{}'", host);
        return std::nullopt;
    }
    const auto parsed = http::Url::parse(url);
    if (!parsed) {
        log::line("❌ [URL CALLBACK] Failed to parse URL components");
        return std::nullopt;
    }
    log::line("🔗 [URL CALLBACK] Query items: {}", listed(parsed->queryItems()));
    auto token = tokenIn(parsed->queryItems());
    if (!token) {
        log::line("❌ [URL CALLBACK] No token found in query parameters");
        return std::nullopt;
    }
    log::line("✅ [URL CALLBACK] Token extracted: {}", tokenPreview(*token));
    return token;
}

} // namespace velto
