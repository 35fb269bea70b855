#include "app/AppFixture.hpp"
#include "backend/DefaultAuthenticationManager.hpp"
#include "backend/Doubles.hpp"

namespace velto::test {
namespace {

constexpr const char* profileReply =
    R"({"data":{"me":{"id":"u1","email":"a@b.c","name":"Ada","genres":[],"regions":[]},"creditBalance":42,
        "preferencesDefaults":{"genres":[],"regions":[],"eras":[]}}})";

/// The state object over the real authentication, whose backend and keyring the test plays.
class Session : public AppFixture {
  protected:
    Session() {
        keyring.saveToken("t");
        viewModel->setUp({manager, tagging, nullptr});
    }

    void signInWithCredits() {
        transport.reply(200, profileReply);
        runtime.run(manager->restoreSession());
    }

    MemoryKeyring keyring;
    ScriptedTransport transport;
    RecordingBrowser browser;
    UserPreferencesStore preferences;
    std::shared_ptr<DefaultGraphQLClient> client = std::make_shared<DefaultGraphQLClient>(
        "https://velto.test/api/graphql", keyringTokenSource(keyring, runtime.executors()), transport,
        crashReporter);
    std::shared_ptr<DefaultAuthenticationManager> manager = std::make_shared<DefaultAuthenticationManager>(
        AuthenticationServices{keyring, *client, clock, crashReporter, browser, preferences,
                               runtime.executors(), "https://velto.test"});
};

TEST_F(Session, FollowsTheAuthenticationAndEndsWithTheData) {
    signInWithCredits();
    EXPECT_EQ(*viewModel->userSession, (UserSession{true, "a@b.c", "Ada", CreditBalance{0, 42}}));
    libraryWithTracks("L", 2);
    keyring.failsToDelete = true;
    runtime.run(viewModel->signOut());
    EXPECT_EQ(container->mainContext().count<Library>(), 1U) << "who is still signed in keeps the data";
    keyring.failsToDelete = false;
    runtime.run(viewModel->signOut());
    EXPECT_EQ(container->mainContext().count<Library>(), 0U);
    EXPECT_EQ(*viewModel->userSession, UserSession{});
}

TEST_F(Session, CreditsAreAskedForAfterARunWhoeverHoldsTheStateObject) {
    signInWithCredits();
    const LibraryRef library = libraryWithTracks("L", 1);
    transport.reply(500, "");
    runThroughTime(viewModel->tagTracks(allTracks(library)));
    runtime.run(viewModel->backgroundWorkFinished());
    EXPECT_EQ(error(), "Failed to refresh credits: Invalid response from server");
    EXPECT_FALSE(viewModel->userSession->isSignedIn);

    transport.reply(200, profileReply);
    runThroughTime(viewModel->tagTracks(allTracks(library)));
    viewModel.reset();
    runtime.runUntil([&] { return manager->authenticationState()->session() != nullptr; });
    EXPECT_EQ(transport.requests.size(), 3U);
}

TEST(UserSessionTest, InitialsComeFromNameThenAddress) {
    const struct {
        std::optional<std::string> name, email;
        std::string expected;
    } cases[] = {
        {"ann bee cee", "x@y", "AB"},
        {"ann", "x@y", "A"},
        {"élan  vital", "x@y", "ÉV"},
        {"", "x@y", "X"},
        {{}, "x@y", "X"},
        {{}, "", "U"},
        {"  ", {}, "U"},
    };

    for (const auto& each : cases) {
        UserSession session;
        session.name = each.name;
        session.email = each.email;
        EXPECT_EQ(session.initials(), each.expected) << each.name.value_or("-");
    }
}

} // namespace
} // namespace velto::test
