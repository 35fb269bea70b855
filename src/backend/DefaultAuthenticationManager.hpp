#pragma once

#include "backend/AuthenticationManager.hpp"
#include "backend/Browser.hpp"
#include "backend/GraphQLClient.hpp"
#include "backend/UserPreferencesStore.hpp"
#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Gate.hpp"
#include "platform/keyring/KeyringService.hpp"
#include "platform/log/CrashReporter.hpp"

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace velto {

/// What the manager works with; everything referred to must outlive it and its executors' tasks.
struct AuthenticationServices {
    KeyringService& keyringService;
    GraphQLClient& graphQLClient;
    Clock& clock;
    CrashReporter& crashReporter;
    Browser& browser;
    UserPreferencesStore& preferences;
    Executors executors;
    /// Where the sign-in pages are: "https://host", without a slash at its end.
    std::string webAddress;
    /// What the log says of that backend.
    std::string environment = "Production (RELEASE build)";
};

class DefaultAuthenticationManager final : public AuthenticationManager {
  public:
    explicit DefaultAuthenticationManager(AuthenticationServices services);

    Published<AuthenticationState>& authenticationState() override { return authenticationState_; }

    Task<void> signIn() override;
    Task<void> signUp() override;
    Task<void> signOut() override;
    Task<void> restoreSession() override;
    Task<void> handleAuthCallback(std::string token) override;
    Task<void> fetchUserProfile() override;

    /// As signIn. The page leads back to `returnAddress` on this computer, with the token as the item "token"
    /// of its query; it can be pasted as well.
    Task<void> signInReturningTo(std::string returnAddress);

    /// Why the latest restoreSession led to no session; null if it did, or if there was no token to try. What
    /// the keyring, the transport or the client failed with; an expired session is GraphQLClientError's
    /// `unauthorized`.
    [[nodiscard]] const std::exception_ptr& restoreFailure() const { return restoreFailure_; }

  private:
    void openPage(const std::string& path, const std::string& invalidText);
    void showError(std::string message);
    static Task<void> clearErrorLater(std::weak_ptr<DefaultAuthenticationManager*> manager, Clock& clock);
    Task<std::optional<std::string>> storedToken();
    void signedIn(const UserPreferencesQueryResponse& response);
    Task<void> endExpiredSession(std::uint64_t asked);
    void recordUnlessOffline(const std::exception& error);
    void profileFailedAfterAuth(const std::exception& error);

    AuthenticationServices services_;
    Published<AuthenticationState> authenticationState_;
    std::optional<Date> lastErrorShown_;
    std::exception_ptr restoreFailure_;
    /// How often the stored token was given or taken away: a reply that was asked for with another one says
    /// nothing of this session.
    std::uint64_t tokenChanges_ = 0;
    /// One token is saved or deleted at a time: a keyring that asks its user takes long.
    Gate keyring_;
    /// Says to the delayed clearing of an error whether the manager is still there.
    std::shared_ptr<DefaultAuthenticationManager*> self_;
};

} // namespace velto
