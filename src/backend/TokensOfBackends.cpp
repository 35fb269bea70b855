#include "backend/TokensOfBackends.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace velto {

namespace {

struct Entry {
    std::string backend;
    std::string token;
};

/// A list of this many fits a token file many times over; whoever signs in at more backends is signed out at
/// the one that was signed in at longest ago.
constexpr std::size_t maximumEntries = 20;

[[noreturn]] void failAsDamaged() {
    throw KeychainError(KeychainError::Case::unexpectedData);
}

std::vector<Entry> entriesIn(KeyringService& place) {
    const auto text = place.retrieveToken();
    if (!text) return {};
    if (!text->starts_with('[')) return {{"", *text}};
    std::vector<Entry> entries;
    try {
        for (const auto& entry : nlohmann::json::parse(*text))
            entries.push_back({entry.at("backend"), entry.at("token")});
    } catch (const nlohmann::json::exception&) {
        failAsDamaged();
    }
    return entries;
}

void store(KeyringService& place, const std::vector<Entry>& entries) {
    if (entries.empty()) return place.deleteToken();
    auto list = nlohmann::json::array();
    for (const Entry& entry : entries)
        list.push_back({{"backend", entry.backend}, {"token", entry.token}});
    std::string text;
    try {
        text = list.dump();
    } catch (const nlohmann::json::exception&) { // a token that is not UTF-8
        failAsDamaged();
    }
    place.saveToken(text);
}

} // namespace

TokenInList::TokenInList(std::shared_ptr<KeyringService> place, std::string backend)
    : place_(std::move(place))
    , backend_(std::move(backend)) {}

void TokenInList::saveToken(const std::string& token) {
    const std::lock_guard lock(mutex_);
    auto entries = entriesIn(*place_);
    std::erase_if(entries, [this](const Entry& entry) { return entry.backend == backend_; });
    entries.insert(entries.begin(), {backend_, token});
    if (entries.size() > maximumEntries) entries.resize(maximumEntries);
    store(*place_, entries);
}

std::optional<std::string> TokenInList::retrieveToken() {
    for (const Entry& entry : entriesIn(*place_))
        if (entry.backend == backend_) return entry.token;
    return std::nullopt;
}

void TokenInList::deleteToken() {
    const std::lock_guard lock(mutex_);
    auto entries = entriesIn(*place_);
    if (std::erase_if(entries, [this](const Entry& entry) { return entry.backend == backend_; }) > 0)
        store(*place_, entries);
}

InheritedToken::InheritedToken(std::shared_ptr<KeyringService> own, std::shared_ptr<KeyringService> nameless)
    : own_(std::move(own))
    , nameless_(std::move(nameless)) {}

void InheritedToken::saveToken(const std::string& token) {
    const std::lock_guard lock(mutex_);
    own_->saveToken(token);
}

std::optional<std::string> InheritedToken::retrieveToken() {
    const std::lock_guard lock(mutex_);
    if (auto token = own_->retrieveToken()) return token;
    auto token = nameless_->retrieveToken();
    if (!token) return std::nullopt;
    try {
        own_->saveToken(*token);
        nameless_->deleteToken();
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): the next use tries again
    }
    return token;
}

void InheritedToken::deleteToken() {
    const std::lock_guard lock(mutex_);
    own_->deleteToken();
    nameless_->deleteToken(); // else the session would come back
}

} // namespace velto
