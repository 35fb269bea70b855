#include "platform/log/Log.hpp"
#include "platform/core/Error.hpp"
#include "support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TemporaryFolder;

TEST(Log, KeepsALineALineAndGivesItItsLevelInTheFile) {
    const TemporaryFolder folder;
    const log::Capture capture;
    {
        const auto file = log::addFileSink(folder / "log");
        log::line("name {}", "a\nb\x1b[2Jc\xff\xc2\x9b\xe2\x82 é 🎉");
        for (const char* line : {"❌ [A] b", "💥 c", "Failed to d: e", "⚠️ [F] ❌", "✅ [G] 0 errors ❌"})
            log::line(line);
    }
    EXPECT_EQ(capture.lines().front(), "name a\\nb\\x1b[2Jc\\xff\\x9b\\xe2\\x82 é 🎉");
    const std::string stamp = "20[-0-9]{8}T[0-9:]{8}[.][0-9]{3}Z ";
    EXPECT_THAT(readFile(folder / "log"),
                testing::MatchesRegex(stamp + "INFO name a[^\n]*🎉\n" + stamp + "ERROR ❌ [[]A] b\n" + stamp +
                                      "ERROR 💥 c\n" + stamp + "ERROR Failed to d: e\n" + stamp +
                                      "WARN ⚠️ [[]F] ❌\n" + stamp + "INFO ✅ [[]G] 0 errors ❌\n"));
    EXPECT_EQ(fs::status(folder / "log").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

/// The numbers at the ends of the lines.
std::vector<int> numbersIn(const std::string& text) {
    std::vector<int> numbers;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1))
        numbers.push_back(std::stoi(text.substr(text.rfind(' ', end))));
    return numbers;
}

TEST(Log, AFileIsBoundedAndTheEndOfARunStaysWhole) {
    constexpr std::size_t limit = 2'000;
    const TemporaryFolder folder;
    const fs::path path = folder.write("log", std::string(3 * limit, 'o'));
    const fs::path before = folder / "log.1";
    {
        const auto file = log::addFileSink(path, limit);
        log::line("line 0");
    }
    EXPECT_EQ(readFile(before).size(), 3 * limit); // a huge file of an earlier program is moved whole
    {
        const auto file = log::addFileSink(path, limit);
        for (int i = 1; i <= 500; ++i) {
            log::line("line {}", i);
            if (i % 7 == 0) log::flush(); // blocks of one line and of several
        }
    }
    EXPECT_LE(fs::file_size(path), limit);
    EXPECT_LE(fs::file_size(before), limit);
    EXPECT_GE(fs::file_size(before) + fs::file_size(path), limit);
    const auto kept = numbersIn(readFile(before) + readFile(path));
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(kept.back(), 500);
    EXPECT_EQ(kept.back() - kept.front() + 1, static_cast<int>(kept.size())); // none is missing between
}

TEST(Log, TwoProcessesMayShareAFileAndAnybodyMayMoveIt) {
    const TemporaryFolder folder;
    const fs::path path = folder / "log";
    constexpr std::size_t limit = 2'000;
    const auto one = log::addFileSink(path, limit), other = log::addFileSink(path, limit);
    for (int i = 0; i < 200; ++i) {
        log::line("line {}", i);
        log::flush();
        ASSERT_LE(fs::file_size(path), limit);
    }
    auto kept = numbersIn(readFile(folder / "log.1") + readFile(path));
    ASSERT_GT(kept.size(), 40U);
    for (std::size_t i = kept.size() - 1; i > 1; i -= 2)
        ASSERT_EQ(kept[i], kept[i - 1]) << "each line stands there twice";
    fs::rename(path, folder / "moved");
    log::line("after 1000");
    log::flush();
    EXPECT_EQ(numbersIn(readFile(path)), (std::vector<int>{1000, 1000}));
}

TEST(Log, AFileThatCannotBeUsedStopsNobody) {
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    fs::create_directory(folder / "folder");
    for (const char* name : {"pipe", "folder", "missing/log"})
        EXPECT_THROW((void)log::addFileSink(folder / name), SystemError) << name;

    fs::create_symlink("/dev/full", folder / "full");
    fs::create_directory(folder / "log.1");
    folder.write("log.1/taken", "a name that rotation cannot have");
    const log::Capture capture;
    const auto full = log::addFileSink(folder / "full", 100);
    const auto stuck = log::addFileSink(folder / "log", 100);
    for (int i = 0; i < 20; ++i)
        log::line("line {}", i);
    EXPECT_EQ(capture.lines().size(), 20U);
    EXPECT_TRUE(fs::is_symlink(folder / "full")) << "a device is not moved";
    EXPECT_EQ(numbersIn(readFile(folder / "log")).size(), 20U);
}

TEST(Log, ASinkThatHangsCostsLinesAndNobodysTime) {
    std::mutex mutex;
    std::condition_variable changed;
    bool hangs = true, isIn = false;
    std::string said;
    const auto sink = log::addSink([&](std::string_view block) {
        std::unique_lock lock(mutex);
        isIn = true;
        changed.notify_all();
        changed.wait(lock, [&] { return !hangs; });
        said += block;
    });
    log::line("first");
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return isIn; });
    }
    const std::string megabyte(std::size_t{1} << 20, 'x');
    for (int i = 0; i < 20; ++i)
        log::line(megabyte); // comes back, though 16 MiB are waiting
    {
        const std::lock_guard lock(mutex);
        hangs = false;
    }
    changed.notify_all();
    log::flush();
    log::line("last");
    log::flush();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1 + 16 + 1 + 1);
    EXPECT_THAT(said,
                testing::EndsWith("x\n⚠️ [LOG] 4 lines are missing here: they came faster than the log "
                                  "could be written\nlast\n"));
}

} // namespace
} // namespace velto
