#include "flows/UserSession.hpp"

#include "platform/text/Text.hpp"

#include <string_view>
#include <vector>

namespace velto {

namespace {

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    while (!text.empty()) {
        const auto space = text.find(' ');
        if (space != 0) found.push_back(text.substr(0, space));
        if (space == std::string_view::npos) break;
        text.remove_prefix(space + 1);
    }
    return found;
}

} // namespace

std::string UserSession::initials() const {
    if (name) {
        const auto parts = words(*name);
        if (parts.size() >= 2)
            return text::firstLetterUppercased(parts[0]) + text::firstLetterUppercased(parts[1]);
        if (parts.size() == 1) return text::firstLetterUppercased(parts[0]);
    }
    if (email && !email->empty()) return text::firstLetterUppercased(*email);
    return "U";
}

UserSession UserSession::from(const AuthenticationState& state) {
    const auto* session = state.session();
    if (session == nullptr) return {};
    return {true, session->profile.email, session->profile.name, session->creditBalance};
}

} // namespace velto
