#include "Fuzzer.hpp"

#include "backend/URLCallback.hpp"
#include "platform/text/Text.hpp"

#include <string_view>

/// Bytes as a callback URL: the token is whole UTF-8, and only an address of ours has one.
void fuzzOne(std::span<const std::uint8_t> input) {
    const std::string_view url(reinterpret_cast<const char*>(input.data()), input.size());
    const auto token = velto::tokenFromCallback(url);
    if (!token) return;
    fuzz::require(url.starts_with("velto://"), "the scheme is ours");
    fuzz::require(velto::text::isValidUtf8(*token), "a token is UTF-8");
}
