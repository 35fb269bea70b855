#include "cli/CliFixture.hpp"

#include <array>
#include <cstdio>
#include <regex>
#include <sys/wait.h>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// The first part of the text that the expression's parentheses enclose.
std::string partOf(const std::string& text, const char* expression) {
    std::smatch found;
    return std::regex_search(text, found, std::regex(expression)) ? found[1].str() : "";
}

TEST_F(Cli, SignsInByTheBrowserAloneAtItsOwnBackend) {
    RunningProgram signIn(command({"sign-in"}));
    ASSERT_TRUE(signIn.waitFor("the link that the page ends with")) << signIn.standardError;
    const std::string backend = partOf(signIn.standardError, "(http://127.0.0.1:[0-9]+)/auth/desktop-login");
    const std::string page = partOf(signIn.standardError, "http://127.0.0.1:[0-9]+(/auth/\\S+)");
    httplib::Client browser(backend);
    const auto form = browser.Get(page);
    ASSERT_TRUE(form);
    const std::string target = partOf(form->body, "name=\"redirect\" value=\"([^\"]+)\"");
    const auto signedIn = browser.Post("/auth/desktop-login",
                                       httplib::Params{{"email", "dj@example.org"}, {"redirect", target}});
    ASSERT_TRUE(signedIn);
    const std::string next =
        std::regex_replace(partOf(signedIn->body, "0;url=([^\"]+)\""), std::regex("&amp;"), "&");
    const std::size_t path = next.find('/', std::string("http://").size());
    httplib::Client again(next.substr(0, path));
    const auto taken = again.Get(next.substr(path));
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->status, 200);
    EXPECT_EQ(signIn.finish(), 0) << signIn.standardError;

    // The port is another each time, and the session the same.
    EXPECT_EQ(json({"whoami"}).at("email"), "dj@example.org");
    const std::string token = partOf(next, "token=(.+)");
    for (const auto& file : fs::recursive_directory_iterator(home())) {
        EXPECT_THAT(readFile(file.path()), testing::Not(HasSubstr(token))) << file.path();
    }

    // A backend that is started by hand knows the same accounts.
    auto byHand = startPiped({"/usr/bin/env", "VELTO_HOME=" + home().string(), VELTO_BACKEND_PROGRAM,
                              "--port", "0", "--quiet", "--exit-with-stdin"},
                             STDOUT_FILENO);
    std::array<char, 100> line{};
    ASSERT_GT(read(byHand.output.get(), line.data(), line.size() - 1), 0);
    httplib::Client client(partOf(line.data(), "(http://[0-9.:]+)"));
    const auto session = client.Get("/dashboard/billing?token=" + token);
    ASSERT_TRUE(session);
    EXPECT_THAT(session->body, HasSubstr("dj@example.org"));
    byHand.input.reset();
    waitpid(byHand.process, nullptr, 0);
}

TEST_F(Cli, SendsATokenToNoBackendButTheOneThatGaveIt) {
    startBackend();
    const std::string first = backendAddress_, token = backend_->signIn("dj@example.org");
    ASSERT_EQ(run({"sign-in", "velto://auth?token=" + token}).status, 0);
    std::optional<BackendProcess> other(std::in_place, folder_ / "other.sqlite");
    const int port = other->port();
    const auto at = [&](const std::string& backend, const Arguments& arguments) {
        backendAddress_ = backend;
        const auto output = run(arguments);
        return output.standardOutput + output.standardError;
    };
    const std::string second = "http://127.0.0.1:" + std::to_string(port);
    const std::string signInFirst = "velto: sign in first: veltoctl sign-in\n";
    EXPECT_EQ(at(second, {"whoami"}), signInFirst);
    EXPECT_EQ(at("", {"whoami"}), signInFirst) << "the program's own backend";
    EXPECT_THAT(at(second, {"sign-in", "velto://auth?token=" + other->signIn("other@example.org")}),
                HasSubstr("other@example.org"));
    EXPECT_THAT(at(first, {"whoami"}), HasSubstr("dj@example.org"));
    // A refusal there, or a sign-out, ends the session there alone.
    other.reset();
    other.emplace(folder_ / "other.sqlite", Arguments{"--fault", "unauthorized", "--fault-on", "all"}, port);
    EXPECT_THAT(at(second, {"whoami"}), HasSubstr("the session has ended"));
    EXPECT_EQ(at(second, {"whoami"}), signInFirst);
    EXPECT_EQ(at(second, {"sign-out"}), "Signed out.\n");
    EXPECT_EQ(at("", {"sign-out"}), "Signed out.\n");
    EXPECT_THAT(at(first, {"whoami"}), HasSubstr("dj@example.org"));

    // A token of an older version does not say who gave it: it is the own backend's, which refuses this one.
    folder_.write("token", token + "\n");
    EXPECT_EQ(at(first, {"whoami"}), signInFirst);
    EXPECT_EQ(readFile(tokenFile()), token + "\n");
    EXPECT_THAT(at("", {"whoami"}), HasSubstr("the session has ended"));

    EXPECT_THAT(at("http://velto.test", {"sign-in", "velto://auth?token=abc"}),
                HasSubstr("Use its https:// address"));
}

} // namespace
} // namespace velto::test
