#include "platform/files/ChildProcess.hpp"
#include "platform/core/Error.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>

namespace velto::files {
namespace {

std::vector<std::string> shell(const std::string& script) {
    return {"/bin/sh", "-c", script};
}

TEST(RunProcess, ArgumentsReachTheProgramAsTheyAre) {
    const ProcessOutput output =
        runProcess({"/usr/bin/printf", "%s|", "two words", "$HOME `id`; *", "", "line\nbreak", "\xFF"});
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.standardOutput, "two words|$HOME `id`; *||line\nbreak|\xFF|");
}

TEST(RunProcess, StatusesAndSignalsAreReported) {
    const ProcessOutput failed = runProcess(shell("echo why >&2; exit 3"));
    EXPECT_EQ(failed.status, 3);
    EXPECT_EQ(failed.standardError, "why\n");
    EXPECT_EQ(runProcess(shell("kill -KILL $$")).status, 128 + SIGKILL);
    EXPECT_EQ(runProcess(shell("read line; echo got:$line")).standardOutput, "got:\n"); // input is empty
    EXPECT_THROW(static_cast<void>(runProcess({"/nonexistent/program"})), SystemError);
}

TEST(RunProcess, FullPipesOnBothStreamsDoNotHang) {
    const ProcessOutput output = runProcess(
        shell("head -c 1000000 /dev/zero >&2; head -c 3000000 /dev/zero; head -c 1000000 /dev/zero >&2"));
    EXPECT_EQ(output.standardOutput.size(), 3'000'000U);
    EXPECT_EQ(output.standardError.size(), 2'000'000U);
}

TEST(RunProcess, AnEndlessOutputIsCutOff) {
    try {
        static_cast<void>(runProcess(shell("exec cat /dev/zero"), 1 << 20));
        FAIL();
    } catch (const SystemError& error) {
        EXPECT_EQ(error.errorNumber(), EFBIG);
    }
}

TEST(RunProcess, NoDescriptorIsInherited) {
    const test::TemporaryFolder folder;
    const int leaked = ::open(folder.path().c_str(), O_RDONLY); // without O_CLOEXEC
    ASSERT_GE(leaked, 0);
    const ProcessOutput output =
        runProcess(shell("[ ! -e /proc/$$/fd/" + std::to_string(leaked) + " ] || echo leaked"));
    ::close(leaked);
    EXPECT_EQ(output.standardOutput, "");
}

TEST(StartDetached, TheProgramGoesOnInASessionOfItsOwn) {
    const test::TemporaryFolder folder;
    const std::string pipe = (folder / "pipe").string();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    // The program waits for a reader, and the start does not wait for the program.
    startDetached({"/bin/sh", "-c", "cut -d' ' -f6 /proc/self/stat >\"$0\"", pipe});
    std::ifstream reader(pipe);
    pid_t session = 0;
    reader >> session;
    EXPECT_GT(session, 0);
    EXPECT_NE(session, ::getsid(0));
}

TEST(ChildProcess, ItsFirstLineIsReadAndItEndsWithItsOwner) {
    pid_t identifier = -1;
    {
        ChildProcess child = ChildProcess::start(shell("echo http://127.0.0.1:1; echo more; cat >/dev/null"));
        identifier = child.identifier();
        EXPECT_EQ(child.readFirstLine(Seconds(30)), "http://127.0.0.1:1");
        EXPECT_TRUE(child.isRunning());
        ChildProcess moved = std::move(child);
        EXPECT_FALSE(child.isRunning()); // NOLINT(bugprone-use-after-move): a moved-from child owns none
        EXPECT_TRUE(moved.isRunning());
    }
    EXPECT_EQ(::kill(identifier, 0), -1);
    EXPECT_EQ(errno, ESRCH); // ended and reaped
}

TEST(ChildProcess, ASilentOrDeadChildGivesNoLine) {
    ChildProcess silent = ChildProcess::start({"/bin/cat"});
    EXPECT_FALSE(silent.readFirstLine(Seconds(0.01)));
    ChildProcess dead = ChildProcess::start(shell("printf partial"));
    EXPECT_FALSE(dead.readFirstLine(Seconds(30)));
    ChildProcess chatty = ChildProcess::start(shell("cat /dev/zero"));
    EXPECT_FALSE(chatty.readFirstLine(Seconds(30)));
}

TEST(ChildProcess, OneThatIgnoresItsTermIsKilled) {
    ChildProcess stubborn = ChildProcess::start(shell("trap '' TERM; echo ready; while :; do :; done"));
    ASSERT_EQ(stubborn.readFirstLine(Seconds(30)), "ready");
    const pid_t identifier = stubborn.identifier();
    stubborn.terminate();
    EXPECT_FALSE(stubborn.isRunning());
    EXPECT_EQ(::kill(identifier, 0), -1);
}

} // namespace
} // namespace velto::files
