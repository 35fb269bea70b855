#include "backend/BackendAddress.hpp"

#include "platform/http/Url.hpp"

#include <algorithm>

namespace velto {

namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
    return lower;
}

/// Four numbers of at most three digits, the first of them 127.
bool isLoopbackNumber(std::string_view host) {
    if (!host.starts_with("127.") || std::count(host.begin(), host.end(), '.') != 3) return false;
    std::size_t digits = 0;
    for (const char c : host) {
        if (c != '.' && (c < '0' || c > '9')) return false;
        digits = c == '.' ? 0 : digits + 1;
        if (digits > 3) return false;
    }
    return digits > 0 && host.find("..") == std::string_view::npos;
}

} // namespace

std::string backendName(std::string_view address) {
    const auto url = http::Url::parse(address);
    if (!url) return std::string(address);
    const std::string scheme = lowerCase(url->scheme());
    std::string_view rest = address.substr(scheme.size() + 3);
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    rest.remove_prefix(authority.size());
    std::string_view path = rest.substr(0, rest.find_first_of("?#"));
    while (path.ends_with('/'))
        path.remove_suffix(1);
    if (const auto at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
    std::string_view port = authority.substr(url->host().size());
    if (port == ":" || (scheme == "https" && port == ":443") || (scheme == "http" && port == ":80"))
        port = {};
    return scheme + "://" + lowerCase(url->host()) + std::string(port) + std::string(path);
}

bool isOnThisComputer(std::string_view address) {
    const auto url = http::Url::parse(address);
    if (!url) return false;
    const std::string host = lowerCase(url->host());
    return host == "localhost" || host == "[::1]" || isLoopbackNumber(host);
}

bool isOpenToOthers(std::string_view address) {
    const auto url = http::Url::parse(address);
    return url && lowerCase(url->scheme()) == "http" && !isOnThisComputer(address);
}

} // namespace velto
