#include "media/Export.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/TagFixtures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

using namespace velto;
using namespace velto::test;
using testing::ElementsAre;

namespace {

/// Where exported files go, for the time of a test.
class TemporaryDirectory {
  public:
    explicit TemporaryDirectory(const std::filesystem::path& path)
        : before(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "") {
        ::setenv("TMPDIR", path.c_str(), 1);
    }

    ~TemporaryDirectory() { before.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", before.c_str(), 1); }

    const std::string before;
};

class ExportRoute : public testing::Test {
  protected:
    void write(const std::vector<std::string>& genres, const std::filesystem::path& file,
               bool append = false) {
        runtime.run(writer.writeGenreTags(genres, file, append));
    }

    static std::string genreOf(const std::filesystem::path& file) {
        return runProgram({"/usr/bin/python3", "-c",
                           "import sys,mutagen\nt=mutagen.File(sys.argv[1]).tags or {}\n"
                           "v=t.get('\\xa9gen') or getattr(t.get('TCON'),'text',None)\n"
                           "print(v[0] if v else '(none)',end='')",
                           file.string()});
    }

    /// What the decoder makes of the sound.
    static std::string soundOf(const std::filesystem::path& file) {
        return runProgram(
            {"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:a", "-c", "copy", "-f", "md5", "-"});
    }

    TestRuntime runtime;
    CountingReporter reporter;
    RewriteJournal journal;
    SimpleMetadataWriter writer{runtime.executors(), reporter, journal};
    TemporaryFolder folder;
};

} // namespace

TEST_F(ExportRoute, writesAppendsAndClears) {
    for (const char* name : {"song.m4a", "song.MP4", "song.aiff", "song.aif"}) {
        const TemporaryFolder own;
        const auto file = makeSound(own, name, {"-metadata", "title=Tïtle", "-write_id3v2", "1"});
        ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
        const std::string sound = soundOf(file);
        const log::Capture log;
        const auto modified = std::filesystem::last_write_time(file) - std::chrono::hours(24);
        std::filesystem::last_write_time(file, modified);
        const auto size = std::filesystem::file_size(file);
        write({"Techno", "House"}, file);
        // The date is kept, but a scan, which looks at size and date, must see the change.
        EXPECT_NE(std::filesystem::last_write_time(file) == modified,
                  std::filesystem::file_size(file) == size)
            << name;
        EXPECT_EQ(genreOf(file), "House - Techno") << name;
        write({"Dub"}, file, true);
        EXPECT_EQ(genreOf(file), "Dub - House - Techno") << name;
        EXPECT_EQ(std::filesystem::status(file).permissions(), static_cast<std::filesystem::perms>(0640))
            << name;
        runtime.run(writer.clearGenreTags(file));
        EXPECT_EQ(genreOf(file), "(none)") << name;
        EXPECT_EQ(soundOf(file), sound) << name;
        const std::string song = name;
        EXPECT_THAT(log.lines(),
                    ElementsAre("✅ [METADATA] Wrote genre tags to " + song + ": 'House - Techno'",
                                "✅ [METADATA] Appended genre tags to " + song + ": 'Dub - House - Techno'",
                                "✅ [AVFoundation] Cleared genre from " + song));
        EXPECT_THAT(namesIn(own.path()), ElementsAre(name));
        EXPECT_EQ(reporter.errors, 0);
    }
}

TEST_F(ExportRoute, worksAcrossFileSystems) {
    struct ::stat here {};
    struct ::stat there {};
    if (::stat("/dev/shm", &there) != 0 || ::stat(folder.path().c_str(), &here) != 0 ||
        here.st_dev == there.st_dev)
        GTEST_SKIP() << "one file system only";
    const auto file = makeSound(folder, "song.m4a");
    const TemporaryDirectory elsewhere("/dev/shm");
    write({"Dub"}, file);
    EXPECT_EQ(genreOf(file), "Dub");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("song.m4a"));
}

TEST_F(ExportRoute, damagedFilesFailAndStay) {
    const auto whole = makeSound(folder, "song.m4a");
    const std::string content = readFile(whole);
    const log::Capture log;
    for (const std::string& damaged : {std::string(), std::string("no container"), content.substr(0, 400)}) {
        const auto file = folder.write("damaged.m4a", damaged);
        EXPECT_THROW(write({"Dub"}, file), ServiceError);
        EXPECT_EQ(readFile(file), damaged);
    }
    EXPECT_EQ(reporter.errors, 3);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("damaged.m4a", "song.m4a"));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ExportRoute, fullDiskAtAnyByteLeavesTheFileWhole) {
    const TemporaryFolder exports;
    const TemporaryDirectory elsewhere(exports.path());
    for (const char* name : {"song.m4a", "song.aiff"}) {
        const TemporaryFolder own;
        const auto file = makeSound(own, name);
        const std::string original = readFile(file);
        const std::string sound = soundOf(file);
        int failures = 0;
        for (const std::size_t limit : {std::size_t{0}, std::size_t{1}, original.size() / 2,
                                        original.size() - 1, original.size(), original.size() + 20'000})
            for (const bool clears : {false, true}) {
                own.write(name, original);
                const bool done = succeedsWithFileLimit(limit, [&] {
                    TestRuntime inChild;
                    SimpleMetadataWriter other(inChild.executors(), reporter, journal);
                    inChild.run(clears ? other.clearGenreTags(file)
                                       : other.writeGenreTags({"Dub"}, file, false));
                });
                failures += done ? 0 : 1;
                EXPECT_TRUE(done ? soundOf(file) == sound : readFile(file) == original) << name << limit;
                EXPECT_THAT(namesIn(own.path()), ElementsAre(name)) << limit;
            }
        EXPECT_GE(failures, 8) << name;
        EXPECT_LT(failures, 12) << name;
    }
    EXPECT_TRUE(namesIn(exports.path()).empty());
}

TEST_F(ExportRoute, settlesALeftOverBackupFirst) {
    const auto file = makeSound(folder, "song.m4a");
    const std::string original = readFile(file);
    const std::string sound = soundOf(file);
    const std::string other = readFile(makeSound(folder, "other.m4a", {"-t", "0.5"}));
    for (const std::string& standing : {std::string(), original.substr(0, 500), other}) {
        std::filesystem::remove(file);
        if (!standing.empty()) folder.write("song.m4a", standing);
        folder.write(".song.m4a.backup", original);
        write({"Dub"}, file);
        EXPECT_EQ(genreOf(file), "Dub");
        EXPECT_EQ(soundOf(file), sound);
    }
    // Only what is a song itself is worth keeping.
    EXPECT_THAT(namesIn(folder.path()), ElementsAre(".song.m4a.replaced", "other.m4a", "song.m4a"));
    EXPECT_TRUE(readFile(folder / ".song.m4a.replaced") == other);
}

TEST_F(ExportRoute, aKilledExportLeavesNothingBehind) {
    const TemporaryFolder exports;
    const TemporaryDirectory elsewhere(exports.path());
    const auto file = makeSound(folder, "song.aiff");
    const std::string sound = soundOf(file);
    for (int round = 0; round < 5; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            TestRuntime inChild;
            RewriteJournal ownJournal(folder / "journal");
            SimpleMetadataWriter other(inChild.executors(), reporter, ownJournal);
            while (true)
                inChild.run(other.writeGenreTags({"Dub"}, file, false));
        }
        while (namesIn(exports.path()).empty())
            ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the writer ended by itself";
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        RewriteJournal next(folder / "journal");
        (void)recoverInterruptedRewrites(next, reporter);
        EXPECT_TRUE(namesIn(exports.path()).empty());
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("journal", "song.aiff"));
        EXPECT_EQ(soundOf(file), sound);
    }
}
