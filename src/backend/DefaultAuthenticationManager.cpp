#include "backend/DefaultAuthenticationManager.hpp"

#include "backend/BackendAddress.hpp"
#include "backend/GraphQLError.hpp"
#include "backend/URLCallback.hpp"
#include "platform/http/URLError.hpp"
#include "platform/http/Url.hpp"
#include "platform/log/Log.hpp"

#include <utility>

namespace velto {

namespace {

constexpr const char* userAndDefaultsQuery =
    "query GetUserAndDefaults {\n    me {\n        id\n        email\n        name\n        genres\n        "
    "regions\n    }\n    creditBalance\n    preferencesDefaults {\n        genres\n        regions\n        "
    "eras\n    }\n}";

/// A second error within this time is not shown.
constexpr Seconds errorCooldown{5};
/// How long an error stays on show.
constexpr Seconds errorShown{3};

bool isUnauthorized(const std::exception& error) {
    const auto* clientError = dynamic_cast<const GraphQLClientError*>(&error);
    return clientError != nullptr && clientError->kind() == GraphQLClientError::Case::unauthorized;
}

constexpr const char* signInPath = "/auth/desktop-login";
constexpr const char* invalidSignIn = "Invalid authentication URL";

/// As the value of an item of a query.
std::string percentEncoded(std::string_view text) {
    std::string encoded;
    for (const char c : text) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             c == '-' || c == '.' || c == '_' || c == '~';
        if (isPlain)
            encoded += c;
        else
            encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return encoded;
}

/// What the user reads when the token is stored but the profile did not come.
std::string messageAfterAuth(const std::exception& error) {
    const auto* urlError = dynamic_cast<const http::URLError*>(&error);
    if (urlError == nullptr) return describe(error);
    log::line("⚠️ [AUTH] URLError code: {}", urlError->rawCode());
    using Code = http::URLError::Code;
    if (urlError->code() == Code::cannotFindHost || urlError->code() == Code::cannotConnectToHost)
        return "Backend server is not available. Token saved - try signing in later when the server is "
               "running.";
    return "Network error: " + describe(error);
}

} // namespace

DefaultAuthenticationManager::DefaultAuthenticationManager(AuthenticationServices services)
    : services_(std::move(services))
    , keyring_(services_.executors.main)
    , self_(std::make_shared<DefaultAuthenticationManager*>(this)) {}

Task<void> DefaultAuthenticationManager::signIn() {
    services_.crashReporter.log("User initiated sign in");
    openPage(signInPath, invalidSignIn);
    co_return;
}

Task<void> DefaultAuthenticationManager::signInReturningTo(std::string returnAddress) {
    services_.crashReporter.log("User initiated sign in");
    openPage(signInPath + ("?redirect=" + percentEncoded(returnAddress)), invalidSignIn);
    co_return;
}

Task<void> DefaultAuthenticationManager::signUp() {
    services_.crashReporter.log("User initiated sign up");
    openPage("/signup", "Invalid sign up URL");
    co_return;
}

void DefaultAuthenticationManager::openPage(const std::string& path, const std::string& invalidText) {
    assertMainActor();
    log::line("🌐 API Environment: {}", services_.environment);
    const std::string address = services_.webAddress + path;
    const auto url = http::Url::parse(address);
    if (!url || !url->isWeb())
        authenticationState_ = AuthenticationState::error(invalidText);
    else if (isOpenToOthers(address)) // the page would send the token that the client then may not send
        authenticationState_ =
            AuthenticationState::error(describe(GraphQLClientError(GraphQLClientError::Case::openToOthers)));
    else
        services_.browser.openURL(address);
}

Task<void> DefaultAuthenticationManager::signOut() {
    assertMainActor();
    services_.crashReporter.log("User signed out");
    ++tokenChanges_;
    try {
        const Gate::Pass alone = co_await keyring_.enter();
        co_await offload(services_.executors,
                         [&keyring = services_.keyringService] { keyring.deleteToken(); });
        ++tokenChanges_; // a request that was made meanwhile may still have had it
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error);
        authenticationState_ = AuthenticationState::error("Failed to sign out: " + describe(error));
        co_return;
    }
    authenticationState_ = AuthenticationState::unauthenticated();
    services_.crashReporter.setUserID(std::nullopt);
    services_.preferences.clear();
}

Task<void> DefaultAuthenticationManager::restoreSession() {
    assertMainActor();
    restoreFailure_ = nullptr;
    std::optional<std::string> token;
    try {
        token = co_await storedToken();
    } catch (const std::exception& error) {
        restoreFailure_ = std::current_exception();
        log::line("Failed to retrieve token: {}", describe(error));
        authenticationState_ = AuthenticationState::unauthenticated();
        co_return;
    }
    if (!token) co_return;
    authenticationState_ = AuthenticationState::authenticating();
    try {
        co_await fetchUserProfile();
    } catch (const std::exception& error) {
        restoreFailure_ = std::current_exception();
        log::line("Failed to restore session: {}", describe(error));
        authenticationState_ = AuthenticationState::unauthenticated();
    }
}

Task<void> DefaultAuthenticationManager::handleAuthCallback(std::string token) {
    assertMainActor();
    log::line("🔐 [AUTH] handleAuthCallback called with token: {}", tokenPreview(token));
    services_.crashReporter.log("Auth callback received with token");
    authenticationState_ = AuthenticationState::authenticating();
    log::line("🔐 [AUTH] State set to: authenticating");
    log::line("🔐 [AUTH] Attempting to save token to Keychain");
    ++tokenChanges_;
    try {
        const Gate::Pass alone = co_await keyring_.enter();
        co_await offload(services_.executors,
                         [&keyring = services_.keyringService, &token] { keyring.saveToken(token); });
        ++tokenChanges_; // a request that was made meanwhile may have had either token
    } catch (const std::exception& error) {
        log::line("❌ [AUTH] Failed to save token to Keychain: {}", describe(error));
        services_.crashReporter.recordError(error);
        showError("Failed to save authentication token: " + describe(error));
        // An error that came too soon after another is not shown, and nothing is under way any more.
        if (authenticationState_->isAuthenticating())
            authenticationState_ = AuthenticationState::unauthenticated();
        co_return;
    }
    log::line("✅ [AUTH] Token saved to Keychain successfully");
    services_.crashReporter.log("Token saved to keychain");
    log::line("🔐 [AUTH] Attempting to fetch user profile");
    try {
        co_await fetchUserProfile();
    } catch (const std::exception& error) {
        profileFailedAfterAuth(error);
        co_return;
    }
    log::line("✅ [AUTH] User profile fetched successfully");
    services_.crashReporter.log("User authenticated successfully");
}

void DefaultAuthenticationManager::profileFailedAfterAuth(const std::exception& error) {
    log::line("⚠️ [AUTH] Failed to fetch user profile after auth: {}", describe(error));
    recordUnlessOffline(error);
    const std::string message = messageAfterAuth(error);
    log::line("⚠️ [AUTH] Setting error message: {}", message);
    showError(message);
    authenticationState_ = AuthenticationState::unauthenticated();
    log::line("🔐 [AUTH] State set to: unauthenticated");
}

Task<void> DefaultAuthenticationManager::fetchUserProfile() {
    assertMainActor();
    const std::uint64_t asked = tokenChanges_;
    if (!co_await storedToken()) {
        if (asked == tokenChanges_) authenticationState_ = AuthenticationState::unauthenticated();
        co_return;
    }
    bool isExpired = false;
    try {
        // On the pool: a large reply takes longer to read than the main actor may be held up.
        const UserPreferencesQueryResponse response = co_await runOn(
            services_.executors.pool,
            services_.graphQLClient.execute<UserPreferencesQueryResponse>(userAndDefaultsQuery));
        if (asked == tokenChanges_) signedIn(response);
        co_return;
    } catch (const std::exception& error) {
        if (asked != tokenChanges_) co_return;
        isExpired = isUnauthorized(error);
        if (!isExpired) {
            recordUnlessOffline(error);
            authenticationState_ = AuthenticationState::error(describe(error));
            throw;
        }
    }
    co_await endExpiredSession(asked);
    if (asked != tokenChanges_) co_return;
    throw GraphQLClientError(GraphQLClientError::Case::unauthorized);
}

void DefaultAuthenticationManager::signedIn(const UserPreferencesQueryResponse& response) {
    authenticationState_ = AuthenticationState::authenticated(response.me, {0, response.creditBalance},
                                                              response.preferencesDefaults);
    services_.crashReporter.setUserID(response.me.id);
    services_.preferences.update(response.me, response.preferencesDefaults);
}

Task<void> DefaultAuthenticationManager::endExpiredSession(std::uint64_t asked) {
    try {
        const Gate::Pass alone = co_await keyring_.enter();
        if (asked != tokenChanges_) co_return; // the token that is stored now is another
        co_await offload(services_.executors,
                         [&keyring = services_.keyringService] { keyring.deleteToken(); });
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): the session ends all the same
    }
    if (asked != tokenChanges_) co_return; // somebody signs in again meanwhile
    authenticationState_ = AuthenticationState::unauthenticated();
    services_.crashReporter.setUserID(std::nullopt);
}

Task<std::optional<std::string>> DefaultAuthenticationManager::storedToken() {
    co_return co_await offload(services_.executors,
                               [&keyring = services_.keyringService] { return keyring.retrieveToken(); });
}

void DefaultAuthenticationManager::recordUnlessOffline(const std::exception& error) {
    if (!http::isOffline(error)) services_.crashReporter.recordError(error);
}

void DefaultAuthenticationManager::showError(std::string message) {
    const Date now = services_.clock.now();
    if (lastErrorShown_ && now - *lastErrorShown_ < errorCooldown) return;
    lastErrorShown_ = now;
    authenticationState_ = AuthenticationState::error(std::move(message));
    spawn(services_.executors.main, clearErrorLater(self_, services_.clock));
}

Task<void> DefaultAuthenticationManager::clearErrorLater(std::weak_ptr<DefaultAuthenticationManager*> manager,
                                                         Clock& clock) {
    co_await clock.sleep(errorShown);
    const auto held = manager.lock();
    if (held && (*held)->authenticationState_->isError())
        (*held)->authenticationState_ = AuthenticationState::unauthenticated();
}

} // namespace velto
