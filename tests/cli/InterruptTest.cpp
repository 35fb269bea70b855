#include "cli/CliFixture.hpp"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Enough that an interrupt comes while they are being read, or stored.
constexpr int manyFiles = 20'000;

std::string inStore(const fs::path& home, const std::string& query) {
    return runProgram({"/usr/bin/python3", "-c",
                       "import sqlite3, sys\n"
                       "for row in sqlite3.connect(sys.argv[1]).execute(sys.argv[2]): print(*row)",
                       (home / "velto.store").string(), query});
}

int tracksStoredAsTagged(const fs::path& home) {
    return std::stoi(inStore(home, "SELECT count(*) FROM Track WHERE lastTagged IS NOT NULL"));
}

TEST_F(Cli, StopsAScanAndClosesItsRun) {
    prepare();
    ASSERT_EQ(run({"library", "add", manySongs(manyFiles).string(), "--no-scan"}).status, 0);
    RunningProgram scan(command({"--verbose", "scan", "many"}));
    ASSERT_TRUE(scan.waitFor("[SEQUENTIAL] Processing")) << scan.standardError;
    scan.signal(SIGINT);
    EXPECT_EQ(scan.finish(), 130) << scan.standardError;
    EXPECT_THAT(scan.standardError, HasSubstr("Import failed: Scan was cancelled"));

    EXPECT_THAT(inStore(home(), "SELECT notes FROM ScanRun WHERE finishedAt IS NOT NULL ORDER BY _id"),
                testing::EndsWith("\nScan failed: The operation was cancelled\n"));
    EXPECT_EQ(inStore(home(), "SELECT count(*) FROM ScanRun WHERE finishedAt IS NULL"), "0\n");
    EXPECT_EQ(json({"tracks", "many"}), nlohmann::json::array());
    EXPECT_EQ(json({"scan", "many"}).at("newCount"), manyFiles);
}

TEST_F(Cli, EndsWithItsTerminalThoughNobodyReadsWhatItSays) {
    prepare();
    ASSERT_EQ(run({"library", "add", manySongs(manyFiles).string(), "--no-scan"}).status, 0);
    RunningProgram scan(command({"--verbose", "scan", "many"}));
    const auto isReading = [&] {
        return readFile(home() / "velto.log").find("[SEQUENTIAL] Processing 20000") != std::string::npos;
    };
    while (!isReading())
        ASSERT_EQ(::waitpid(scan.process(), nullptr, WNOHANG), 0);
    scan.signal(SIGHUP);
    scan.signal(SIGHUP);        // not a second wish: a terminal that closes says so more than once
    EXPECT_EQ(scan.end(), 130); // its standard error is full by now
    EXPECT_EQ(inStore(home(), "SELECT count(*) FROM ScanRun WHERE finishedAt IS NULL"), "0\n");
}

TEST_F(Cli, StopsARunAndTakesInWhatIsUnderWay) {
    makeMusic(60);
    prepare();
    startBackend({"--fault", "slow:500"});
    RunningProgram tagging(command({"--verbose", "tag", "--yes"}));
    ASSERT_TRUE(tagging.waitFor("[VM] Processing batch 3/6")) << tagging.standardError;
    tagging.signal(SIGINT);
    EXPECT_EQ(tagging.finish(), 130) << tagging.standardError;
    EXPECT_THAT(tagging.standardError, HasSubstr("tracks not tagged: The run was stopped\n"));
    const int stored = tracksStoredAsTagged(home());
    EXPECT_EQ(stored, 1000 - backend_->credits(token_));
    EXPECT_GE(stored, 20); // the third may be on its way into the journal still
    EXPECT_LE(stored, 50);

    RunningProgram clearing(command({"clear-tags", "--yes"}));
    ASSERT_TRUE(clearing.waitFor("Clearing tags...")) << clearing.standardError;
    clearing.signal(SIGTERM);
    EXPECT_EQ(clearing.finish(), 130) << clearing.standardError;
    EXPECT_THAT(clearing.standardError, testing::EndsWith(" tracks stay\n"));
}

TEST_F(Cli, StoresWhatWasPaidForAndSaysWhatIsLostIfItMustEndAtOnce) {
    makeMusic(30);
    prepare();
    // Two interrupts (of one number they might arrive as one), and a shutdown that waits for nobody.
    for (const int number : {SIGINT, SIGTERM}) {
        ASSERT_EQ(run({"clear-tags", "--yes"}).status, 0);
        startBackend({"--fault", "slow:600000@1"}); // the first of three batches is never answered
        const int credits = backend_->credits(token_);
        RunningProgram tagging(command({"--verbose", "tag", "--yes"}));
        ASSERT_TRUE(tagging.waitFor("[VM] Batch 3 complete")) << tagging.standardError;
        ASSERT_TRUE(tagging.waitFor("genre tags to")) << tagging.standardError;
        tagging.signal(number);
        if (number == SIGINT) tagging.signal(SIGTERM);
        EXPECT_EQ(tagging.finish(), 130);
        EXPECT_THAT(
            tagging.standardError,
            testing::ContainsRegex("velto: stopped; the tags of 1[0-9] tracks that may have been paid "
                                   "for are lost; which ones is in "));
        EXPECT_EQ(tracksStoredAsTagged(home()), credits - backend_->credits(token_));
        EXPECT_EQ(tracksStoredAsTagged(home()), 17);
        for (const auto& entry : fs::recursive_directory_iterator(music()))
            EXPECT_NE(entry.path().extension(), ".backup") << entry.path(); // a write that was cut off
    }
}

TEST_F(Cli, HasABackendOfItsOwnThatEndsWithItEvenWhenItIsKilled) {
    // Orphans come to this process, so that their end can be awaited.
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    RunningProgram first(command({"sign-in"}));
    ASSERT_TRUE(first.waitFor("token=...):"));
    const std::string address = "http://127.0.0.1:";
    const auto at = first.standardError.rfind(address) + address.size();
    httplib::Client page("127.0.0.1", std::stoi(first.standardError.substr(at)));
    const auto link = page.Get("/auth/desktop-login?email=own@example.org&format=text");
    ASSERT_TRUE(link);

    const auto second = run({"library", "list"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.standardError, HasSubstr("Could not create ModelContainer: The library store " +
                                                (home() / "velto.store").string() +
                                                " is in use by another running copy of Velto."));

    const auto children = childrenOf(first.process());
    ASSERT_EQ(children.size(), 1);
    first.signal(SIGKILL);
    EXPECT_EQ(first.finish(), 128 + SIGKILL);
    EXPECT_EQ(::waitpid(children.front(), nullptr, 0), children.front());

    // Its state is under home: the token of that page still counts.
    EXPECT_EQ(json({"sign-in", link->body}).at("email"), "own@example.org");
    EXPECT_EQ(run({"whoami"}).standardOutput, "own@example.org, 1000 credits left\n");
}

} // namespace
} // namespace velto::test
