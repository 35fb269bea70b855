#pragma once

#include "backend/AuthenticationState.hpp"

#include <optional>
#include <string>

namespace velto {

/// The signed-in user as the views show it.
struct UserSession {
    bool isSignedIn = false;
    std::optional<std::string> email;
    std::optional<std::string> name;
    std::optional<CreditBalance> creditBalance;

    bool operator==(const UserSession&) const = default;

    /// One or two letters for the avatar: of the name's first two words, else of its one word, else of the
    /// e-mail address, else "U".
    [[nodiscard]] std::string initials() const;

    /// Signed out unless the state is `authenticated`.
    static UserSession from(const AuthenticationState& state);
};

} // namespace velto
