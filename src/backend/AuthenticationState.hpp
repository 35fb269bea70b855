#pragma once

#include "backend/UserProfile.hpp"

#include <string>
#include <utility>
#include <variant>

namespace velto {

/// How far the sign-in has come. Starts as unauthenticated.
class AuthenticationState {
  public:
    /// What the last GetUserAndDefaults returned.
    struct Session {
        UserProfile profile;
        CreditBalance creditBalance;
        PreferencesDefaults defaults;

        bool operator==(const Session&) const = default;
    };

    AuthenticationState() = default;

    static AuthenticationState authenticated(UserProfile profile, CreditBalance creditBalance,
                                             PreferencesDefaults defaults) {
        return AuthenticationState(Session{std::move(profile), creditBalance, std::move(defaults)});
    }

    static AuthenticationState error(std::string message) {
        return AuthenticationState(Failure{std::move(message)});
    }

    static AuthenticationState unauthenticated() { return {}; }

    static AuthenticationState authenticating() { return AuthenticationState(InProgress{}); }

    /// The payload of `authenticated`; null in every other state.
    [[nodiscard]] const Session* session() const { return std::get_if<Session>(&value_); }

    /// The text on show; null if the state is not `error`.
    [[nodiscard]] const std::string* errorMessage() const {
        const auto* failure = std::get_if<Failure>(&value_);
        return failure ? &failure->message : nullptr;
    }

    [[nodiscard]] bool isAuthenticated() const { return session() != nullptr; }

    [[nodiscard]] bool isError() const { return errorMessage() != nullptr; }

    [[nodiscard]] bool isUnauthenticated() const { return std::holds_alternative<SignedOut>(value_); }

    [[nodiscard]] bool isAuthenticating() const { return std::holds_alternative<InProgress>(value_); }

    bool operator==(const AuthenticationState&) const = default;

  private:
    struct SignedOut {
        bool operator==(const SignedOut&) const = default;
    };

    struct InProgress {
        bool operator==(const InProgress&) const = default;
    };

    struct Failure {
        std::string message;
        bool operator==(const Failure&) const = default;
    };

    using Value = std::variant<SignedOut, InProgress, Session, Failure>;

    explicit AuthenticationState(Value value)
        : value_(std::move(value)) {}

    Value value_;
};

} // namespace velto
