#include "backend/DefaultAuthenticationManager.hpp"
#include "backend/Doubles.hpp"
#include "backend/GraphQLError.hpp"
#include "backend/Selection.hpp"
#include "platform/log/Log.hpp"
#include "support/ManualClock.hpp"
#include "support/TestRuntime.hpp"

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <future>

namespace velto {
namespace {

using http::URLError;
using Trace = std::vector<std::string>;

constexpr const char* profileReply =
    R"({"data":{"me":{"id":"u1","email":"a@b.c","name":"Ann","genres":["House"],"regions":["UK"]},
        "creditBalance":42,"preferencesDefaults":{"genres":["House","Hip-Hop"],"regions":["UK","US"],"eras":["1990s"]}}})";

std::string shown(const AuthenticationState& state) {
    if (const auto* session = state.session())
        return session->profile.email + " " + std::to_string(session->creditBalance.used) + "/" +
               std::to_string(session->creditBalance.total);
    if (const auto* message = state.errorMessage()) return "error: " + *message;
    return state.isAuthenticating() ? "authenticating" : "unauthenticated";
}

class AuthenticationManagerTest : public testing::Test {
  protected:
    std::unique_ptr<DefaultAuthenticationManager>
    makeManager(const std::string& webAddress = "https://velto.test") {
        return std::make_unique<DefaultAuthenticationManager>(AuthenticationServices{
            keyring, client, clock, crashReporter, browser, preferences, runtime.executors(), webAddress});
    }

    test::TestRuntime runtime;
    test::ManualClock clock{runtime.main()};
    test::MemoryKeyring keyring;
    test::ScriptedTransport transport;
    test::RecordingCrashReporter crashReporter;
    test::RecordingBrowser browser;
    UserPreferencesStore preferences;
    DefaultGraphQLClient client{"https://velto.test/api/graphql",
                                keyringTokenSource(keyring, runtime.executors()), transport, crashReporter};
    std::unique_ptr<DefaultAuthenticationManager> manager = makeManager();
    Trace trace;
    Subscription subscription = manager->authenticationState().subscribe(
        [this](const AuthenticationState& state) { trace.push_back(shown(state)); });
};

TEST_F(AuthenticationManagerTest, ACallbackSignsInAndASignOutForgets) {
    transport.adjust = test::asSelected;
    transport.reply(200, profileReply);
    runtime.run(manager->handleAuthCallback("token-1"));
    EXPECT_EQ(trace, (Trace{"authenticating", "a@b.c 0/42"}));
    EXPECT_NE(transport.repliedOn, std::this_thread::get_id()) << "a large reply holds up the main actor";
    EXPECT_EQ(keyring.retrieveToken(), "token-1");
    EXPECT_EQ(crashReporter.user, "u1");
    EXPECT_EQ(crashReporter.lines, (Trace{"Auth callback received with token", "Token saved to keychain",
                                          "User authenticated successfully"}));
    EXPECT_EQ(*preferences.userGenres, (Trace{"House"}));
    EXPECT_EQ(*preferences.userRegions, (Trace{"UK"}));
    EXPECT_EQ(*preferences.availableRegions, (Trace{"UK", "US"}));
    EXPECT_EQ(manager->authenticationState()->session()->profile.name, "Ann");
    EXPECT_EQ(*preferences.availableGenres, (Trace{"House", "Hip-Hop"}));
    EXPECT_EQ(*preferences.availableEras, (Trace{"1990s"}));

    runtime.run(manager->signOut());
    EXPECT_EQ(trace.back(), "unauthenticated");
    EXPECT_EQ(keyring.retrieveToken(), std::nullopt);
    EXPECT_EQ(crashReporter.user, std::nullopt);
    EXPECT_TRUE(preferences.userGenres->empty() && preferences.availableGenres->empty() &&
                preferences.availableRegions->empty() && preferences.availableEras->empty());
}

TEST_F(AuthenticationManagerTest, ACallbackWhoseProfileFailsSaysWhy) {
    struct Row {
        std::optional<URLError::Code> failure; ///< none: status 401
        std::string first;                     ///< fetchUserProfile's own state
        std::string message;
        bool keepsToken;
        std::size_t recorded; ///< by fetchUserProfile and again by the callback
    };

    const std::string unavailable = "error: Backend server is not available. Token saved - try signing in "
                                    "later when the server is running.";
    const auto text = [](URLError::Code code) { return URLError(code).errorDescription(); };
    using enum URLError::Code;
    const std::vector<Row> rows = {
        {cannotFindHost, "error: " + text(cannotFindHost), unavailable, true, 2},
        {cannotConnectToHost, "error: " + text(cannotConnectToHost), unavailable, true, 2},
        {timedOut, "error: " + text(timedOut), "error: Network error: " + text(timedOut), true, 2},
        {notConnectedToInternet, "error: " + text(notConnectedToInternet),
         "error: Network error: " + text(notConnectedToInternet), true, 0},
        {std::nullopt, "unauthenticated", "error: Unauthorized - please sign in again", false, 1},
    };
    for (const Row& row : rows) {
        trace.clear();
        crashReporter.errors.clear();
        row.failure ? transport.fail(*row.failure) : transport.reply(401, "");
        runtime.run(manager->handleAuthCallback("token"));
        EXPECT_EQ(trace, (Trace{"authenticating", row.first, row.message, "unauthenticated"}));
        EXPECT_EQ(keyring.retrieveToken().has_value(), row.keepsToken) << row.message;
        EXPECT_EQ(crashReporter.errors.size(), row.recorded) << row.message;
        clock.advance(Seconds(5));
    }
}

TEST_F(AuthenticationManagerTest, AnErrorStaysThreeSecondsAndHushesTheNextForFive) {
    keyring.failsToSave = true;
    const std::string failed =
        "error: Failed to save authentication token: Unable to save authentication token to Keychain";
    runtime.run(manager->handleAuthCallback("a"));
    EXPECT_EQ(trace, (Trace{"authenticating", failed}));
    runtime.poll();
    clock.advance(Seconds(2.999));
    runtime.poll();
    EXPECT_EQ(trace.back(), failed);
    clock.advance(Seconds(0.001));
    runtime.poll();
    EXPECT_EQ(trace.back(), "unauthenticated");

    trace.clear();
    clock.advance(Seconds(1.999));
    runtime.run(manager->handleAuthCallback("b"));
    EXPECT_EQ(trace, (Trace{"authenticating", "unauthenticated"})) << "4.999 s after the first";
    clock.advance(Seconds(0.001));
    runtime.run(manager->handleAuthCallback("c"));
    EXPECT_EQ(trace.back(), failed) << "5 s after the first";
}

TEST_F(AuthenticationManagerTest, ADelayedClearingTouchesNothingButItsError) {
    keyring.failsToSave = true;
    runtime.run(manager->handleAuthCallback("a"));
    keyring.failsToSave = false;
    transport.reply(200, profileReply);
    runtime.run(manager->handleAuthCallback("b"));
    clock.advance(Seconds(3));
    runtime.poll();
    EXPECT_EQ(trace.back(), "a@b.c 0/42");

    keyring.failsToSave = true;
    clock.advance(Seconds(5));
    runtime.run(manager->handleAuthCallback("c"));
    runtime.poll();
    manager.reset();
    clock.advance(Seconds(3));
    runtime.poll(); // with the manager gone, nothing to touch
    EXPECT_EQ(clock.sleepers(), 0U);
}

TEST_F(AuthenticationManagerTest, RestoringTriesTheStoredTokenAndKeepsWhyItFailed) {
    runtime.run(manager->restoreSession());
    EXPECT_EQ(trace, Trace{}) << "without a token";
    EXPECT_FALSE(manager->restoreFailure());

    struct Row {
        bool isKeyringBroken;
        std::optional<URLError::Code> failure;
        int status;
        std::string reason;
        std::string states;
    };

    const std::string begun = "authenticating > ", left = " > unauthenticated";
    const std::string offline = URLError(URLError::Code::notConnectedToInternet).errorDescription();
    const std::string unreachable = "The server could not be reached.";
    const Row rows[] = {
        {true, {}, 0, "Unable to retrieve authentication token from Keychain", "unauthenticated"},
        {false, URLError::Code::notConnectedToInternet, 0, offline, begun + "error: " + offline + left},
        {false, URLError::Code::cannotConnectToHost, 0, unreachable, begun + "error: " + unreachable + left},
        {false, {}, 200, "", begun + "a@b.c 0/42"},
        {false, {}, 401, "Unauthorized - please sign in again", begun + "unauthenticated" + left},
    };
    keyring.saveToken("t");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        trace.clear();
        crashReporter.errors.clear();
        const log::Capture log;
        keyring.failsToRetrieve = row.isKeyringBroken;
        if (row.failure) transport.fail(*row.failure);
        if (row.status != 0) transport.reply(row.status, profileReply);
        runtime.run(manager->restoreSession());
        EXPECT_EQ(fmt::format("{}", fmt::join(trace, " > ")), row.states);
        EXPECT_EQ(manager->restoreFailure() ? describe(manager->restoreFailure()) : "", row.reason);
        EXPECT_EQ(log.contains("Failed to retrieve token: " + row.reason), row.isKeyringBroken);
        EXPECT_EQ(crashReporter.errors.empty(), row.failure != URLError::Code::cannotConnectToHost);
        keyring.failsToRetrieve = false;
        EXPECT_EQ(keyring.retrieveToken().has_value(), row.status != 401);
        clock.advance(Seconds(5));
    }
}

TEST_F(AuthenticationManagerTest, AnExpiredTokenEndsTheSessionButKeepsTheVocabulary) {
    transport.reply(200, profileReply);
    runtime.run(manager->handleAuthCallback("t"));
    transport.reply(401, "");
    EXPECT_THROW(runtime.run(manager->fetchUserProfile()), GraphQLClientError);
    EXPECT_EQ(trace.back(), "unauthenticated");
    EXPECT_EQ(keyring.retrieveToken(), std::nullopt);
    EXPECT_EQ(crashReporter.user, std::nullopt);
    EXPECT_EQ(*preferences.availableEras, (Trace{"1990s"}));

    keyring.saveToken("t");
    transport.reply(200, R"({"data":{"me":{"id":"u1","email":"a@b.c"},"creditBalance":1}})");
    EXPECT_THROW(runtime.run(manager->fetchUserProfile()), GraphQLClientError);
    EXPECT_TRUE(trace.back().starts_with("error: Failed to decode response: ")) << trace.back();
    EXPECT_EQ(*preferences.availableEras, (Trace{"1990s"}));
}

TEST_F(AuthenticationManagerTest, AReplyToAnotherTokenSaysNothingOfThisSession) {
    keyring.saveToken("old");
    transport.beforeReply = [this] { return runOn(runtime.main(), manager->signOut()); };
    transport.reply(200, profileReply);
    runtime.run(manager->fetchUserProfile());
    EXPECT_EQ(shown(manager->authenticationState()), "unauthenticated");
    EXPECT_EQ(crashReporter.user, std::nullopt);

    keyring.saveToken("old");
    transport.beforeReply = [this] { return runOn(runtime.main(), manager->handleAuthCallback("new")); };
    transport.reply(200, profileReply); // to the new token's question
    transport.reply(401, "");           // to the old one's
    runtime.run(manager->fetchUserProfile());
    EXPECT_EQ(shown(manager->authenticationState()), "a@b.c 0/42");
    EXPECT_EQ(keyring.retrieveToken(), "new");
}

TEST_F(AuthenticationManagerTest, ASignInWhileAnExpiredTokenIsDeletedStays) {
    keyring.saveToken("old");
    keyring.beforeDelete = [this] {
        keyring.beforeDelete = nullptr;
        std::promise<void> started;
        asio::post(runtime.main(), [&] {
            spawn(runtime.main(), manager->handleAuthCallback("new"));
            asio::post(runtime.main(), [&] { started.set_value(); }); // it is at the keyring by then
        });
        started.get_future().wait();
    };
    transport.reply(401, "");
    transport.reply(200, profileReply);
    runtime.run(manager->fetchUserProfile());
    runtime.runUntil([this] { return !manager->authenticationState()->isAuthenticating(); });
    EXPECT_EQ(trace, (Trace{"authenticating", "a@b.c 0/42"}));
    EXPECT_EQ(keyring.retrieveToken(), "new");
}

TEST_F(AuthenticationManagerTest, ASignOutThatFailsKeepsTheSession) {
    keyring.saveToken("t");
    keyring.failsToDelete = true;
    crashReporter.user = "u1";
    runtime.run(manager->signOut());
    EXPECT_EQ(trace,
              (Trace{"error: Failed to sign out: Unable to delete authentication token from Keychain"}));
    EXPECT_EQ(crashReporter.user, "u1");
    EXPECT_EQ(crashReporter.errors.size(), 1U);
}

TEST_F(AuthenticationManagerTest, OpensThePagesOfTheService) {
    runtime.run(manager->signIn());
    runtime.run(manager->signUp());
    EXPECT_EQ(browser.opened, (Trace{"https://velto.test/auth/desktop-login", "https://velto.test/signup"}));
    runtime.run(manager->signInReturningTo("http://127.0.0.1:1/a?b=c"));
    EXPECT_EQ(browser.opened.back(), "https://velto.test/auth/desktop-login?redirect="
                                     "http%3A%2F%2F127.0.0.1%3A1%2Fa%3Fb%3Dc");
    EXPECT_EQ(trace, Trace{});
    const std::string open = "error: The backend's address begins with http://, so others could read the "
                             "sign-in on its way. Use its https:// address; http:// is for a backend on this "
                             "computer.";
    const std::string noSignIn = "error: Invalid authentication URL", noSignUp = "error: Invalid sign up URL";
    for (const auto& [address, signInError, signUpError] : {std::tuple("", noSignIn, noSignUp),
                                                            {"no address", noSignIn, noSignUp},
                                                            {"file://host", noSignIn, noSignUp},
                                                            {"http://velto.test", open, open}}) {
        const auto lost = makeManager(address);
        runtime.run(lost->signIn());
        EXPECT_EQ(shown(lost->authenticationState()), signInError);
        runtime.run(lost->signUp());
        EXPECT_EQ(shown(lost->authenticationState()), signUpError);
    }
    EXPECT_EQ(browser.opened.size(), 3U);
}

} // namespace
} // namespace velto
