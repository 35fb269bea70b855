// The program around the operations: its faults on demand, its start, its end and its death.

#include "tools/LocalBackend.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

namespace velto::test {
namespace {

using testing::HasSubstr;
using LocalBackendProcess = LocalBackend;

TEST_F(LocalBackendProcess, CommitsTheFaultsThatItIsAskedFor) {
    auto& backend = start({"--control", "--fault", "rate-limit:2500@1", "--fault", "server-error@2"});
    const auto tag = [&](int count = 4) { return backend.graphql(token, tagTracks, songs(count)); };
    const auto limited = tag().data()["tagTracks"];
    EXPECT_EQ(limited["success"], false);
    EXPECT_EQ(limited["errors"][0]["type"], "rate_limit");
    EXPECT_EQ(limited["retryAfter"], 2500);
    EXPECT_EQ(limited["shouldRetry"], true);
    EXPECT_EQ(tag().status, 500);
    EXPECT_EQ(backend.credits(token), 1000) << "a fault of TagTracks hits it alone";
    EXPECT_EQ(tag().status, 500);
    EXPECT_EQ(tag().data()["tagTracks"]["tracksTagged"], 4) << "the faults are used up";
    EXPECT_EQ(backend.credits(token), 996);

    const auto set = [&](const json& faults, const std::string& on = "TagTracks") {
        auto client = backend.client();
        return client
            .Post("/control/faults", json{{"faults", faults}, {"on", on}}.dump(), "application/json")
            ->status;
    };

    struct Case {
        const char* fault;
        int status;
        const char* text; ///< Part of the reply.
        int charged;
    };

    for (const auto& [fault, status, text, charged] : {
             Case{"wrong-status", 201, "\"tracksTagged\":4", 4},
             {"drop", 0, "", 4},
             {"malformed", 200, "{\"data\"", 4},
             {"graphql-error:Out of: order", 200, "{\"errors\":[{\"message\":\"Out of: order\"}]}", 0},
             {"partial", 200, "\"tracksTagged\":2", 2},
         }) {
        const auto before = backend.credits(token);
        ASSERT_EQ(set({fault}), 200);
        const auto answer = tag();
        EXPECT_EQ(answer.status, status) << fault;
        EXPECT_THAT(answer.text, HasSubstr(text)) << fault;
        EXPECT_EQ(before - backend.credits(token), charged) << fault;
    }
    ASSERT_EQ(set({"slow:1", "server-error"}, "GetUserAndDefaults"), 200);
    EXPECT_EQ(backend.graphql(token, "{ creditBalance }").status, 500);
    EXPECT_EQ(tag().status, 200);
    for (const char* wrong :
         {"", "slower", "slow:x", "slow:-1", "drop:1", "drop@0", "huge:99999999999999999999", "drop@"})
        EXPECT_EQ(set({wrong}), 400) << wrong;
}

TEST_F(LocalBackendProcess, KeepsItsStateWhenItIsKilled) {
    auto& backend = start({"--credits", "100"});
    const std::string killed = token; // the next start signs in anew
    EXPECT_EQ(backend.graphql(token, tagTracks, songs(30)).status, 200);
    // Killed while requests are under way: afterwards the balance says exactly which of them were done.
    std::atomic<int> confirmed = 0, unknown = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i)
        clients.emplace_back([&] {
            for (int request = 0; request < 10; ++request) {
                const auto answer = backend.graphql(token, tagTracks, songs(1));
                if (answer.status != 200)
                    ++unknown;
                else if (++confirmed == 8)
                    backend.signal(SIGKILL);
            }
        });
    for (auto& client : clients)
        client.join();
    const int status = backend.wait();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_GT(unknown, 0);

    auto& again = start({"--credits", "7"});
    EXPECT_LE(again.credits(killed), 70 - confirmed);
    EXPECT_GE(again.credits(killed), 70 - confirmed - 4) << "at most one request a client was on its way";
    struct stat info {};
    ASSERT_EQ(stat(state().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    for (const auto& entry : std::filesystem::directory_iterator(state().parent_path()))
        EXPECT_THAT(readFile(entry.path()), testing::Not(HasSubstr(killed))) << "only a hash is kept";
}

TEST_F(LocalBackendProcess, EndsWithItsStandardInputAndOnSignals) {
    start().closeStdin();
    EXPECT_EQ(backend_->wait(), 0);
    for (const int number : {SIGTERM, SIGINT}) {
        auto& backend = start({"--fault", "slow:600000"});
        std::thread waiting([&] { (void)backend.graphql(token, tagTracks, songs(1)); });
        // A reply that takes ten minutes does not hold up the end.
        backend.signal(number);
        EXPECT_EQ(backend.wait(), 0) << number;
        waiting.join();
    }
}

TEST_F(LocalBackendProcess, FailsIfItCannotStart) {
    const auto taken = std::to_string(start().port());
    for (const auto& [option, value, expected] :
         {std::tuple("--port", taken, 1), {"--fault", "nonsense", 2}}) {
        int status = -1;
        (void)runProgram(
            {VELTO_BACKEND_PROGRAM, "--quiet", "--state", (folder_ / "another").string(), option, value},
            &status);
        EXPECT_EQ(status, expected) << option;
    }
}

} // namespace
} // namespace velto::test
