#pragma once

#include "backend/AuthenticationState.hpp"
#include "platform/concurrency/Published.hpp"
#include "platform/concurrency/Task.hpp"

#include <string>

namespace velto {

/// Sign-in by the browser and a callback URL. Everything here is on the main actor. Only fetchUserProfile
/// throws; the failures of the others show in the state.
class AuthenticationManager {
  public:
    virtual ~AuthenticationManager() = default;

    /// The observable state; only the manager assigns it.
    virtual Published<AuthenticationState>& authenticationState() = 0;

    /// Opens the log-in page and returns; the state changes when the callback comes, if it comes.
    virtual Task<void> signIn() = 0;
    /// Opens the sign-up page and returns.
    virtual Task<void> signUp() = 0;
    virtual Task<void> signOut() = 0;
    /// Tries the stored token; once, at the start of the program.
    virtual Task<void> restoreSession() = 0;
    /// Stores the token that the callback brought and fetches the profile with it.
    virtual Task<void> handleAuthCallback(std::string token) = 0;

    /// Fetches profile, credits and vocabulary anew. Without a token it only sets the state. Throws what the
    /// token store, the transport (http::URLError) or the client (GraphQLClientError) failed with, after the
    /// state has been set.
    virtual Task<void> fetchUserProfile() = 0;
};

} // namespace velto
