#include "tagwriting/GuardedRewrite.hpp"
#include "id3/ID3TagBuilder.hpp"
#include "platform/log/Log.hpp"
#include "tagwriting/CarriedFrames.hpp"
#include "tagwriting/FileCopy.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/TagFixtures.hpp"
#include "tagwriting/mp3/ID3TagEditor.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <optional>
#include <thread>

using namespace velto;
using namespace velto::test;
using testing::ElementsAre;

namespace {

const std::string audio = "\xFF\xFB" + std::string(20'000, 'a') + "end";
const std::string oldTag = tagOf(3, frameOf(3, "TIT2", raw("\0Old")));
const std::string newTag = tagOf(3, frameOf(3, "TIT2", raw("\0Old")) + frameOf(3, "TCON", raw("\0Dub")));

void put(const std::filesystem::path& file, const std::optional<std::string>& content) {
    std::filesystem::remove(file);
    if (content) std::ofstream(file, std::ios::binary) << *content;
}

} // namespace

TEST(InterruptedRewrite, everyStateEndsWithOneWholeFile) {
    using Content = std::optional<std::string>;

    struct Row {
        const char* killed;
        Content file;
        Content backup;
        Content making;
        Content expected;
        std::size_t restored;
        bool isKept = false; ///< what stood there, under a name of its own
    };

    const std::string original = oldTag + audio;
    const std::string blank(4096, '\0');
    const std::vector<Row> rows{
        {"before anything", original, {}, {}, original, 0},
        {"while the backup was copied", original, {}, original.substr(0, 5000), original, 0},
        {"when the backup had its name and nothing else", original, "", {}, original, 0},
        {"likewise, of a file with an empty tag", tagOf(3, "") + audio, "", {}, tagOf(3, "") + audio, 0},
        {"when the backup stood", original, original, {}, original, 0},
        {"when room had been made in front", blank + original, original, {}, original, 1},
        {"after the old header was taken off",
         blank.substr(0, 10) + original.substr(10),
         original,
         {},
         original,
         1},
        {"before the header was written",
         blank.substr(0, 10) + newTag.substr(10) + audio,
         original,
         {},
         original,
         1},
        {"while the audio moved to the front",
         blank.substr(0, 10) + oldTag.substr(10, 5) + audio.substr(0, 900) + original.substr(915),
         original,
         {},
         original,
         1},
        {"while the audio moved back",
         blank.substr(0, 10) + audio + audio.substr(1000),
         original,
         {},
         original,
         1},
        {"by a power cut, the header alone on the disk",
         newTag.substr(0, 10) + blank.substr(0, newTag.size() - 10) + audio,
         original,
         {},
         original,
         1,
         true},
        {"by a power cut, half of the file gone", original.substr(0, 8000), original, {}, original, 1, true},
        {"and another program added a tag since",
         newTag + audio + "APETAGEX",
         original,
         {},
         original,
         1,
         true},
        {"and another program changed the title since",
         tagOf(3, frameOf(3, "TIT2", raw("\0New"))) + audio,
         original,
         {},
         original,
         1,
         true},
        {"and the user put another file there since",
         "\xFF\xFB another sound",
         original,
         {},
         original,
         1,
         true},
        {"with a tag that declares too much",
         raw("ID3\x03\0\0\x7F\x7F\x7F\x7F") + audio,
         original,
         {},
         original,
         1},
        {"with one byte of audio wrong",
         newTag + audio.substr(0, 900) + "b" + audio.substr(901),
         original,
         {},
         original,
         1,
         true},
        {"when it was set aside", {}, original, {}, original, 1},
        {"before the backup was removed", newTag + audio, original, {}, newTag + audio, 0},
        {"after all of it", newTag + audio, {}, {}, newTag + audio, 0},
    };
    for (const Row& row : rows) {
        const TemporaryFolder folder;
        const TemporaryFolder home;
        const auto file = folder / "song.mp3";
        put(file, row.file);
        put(folder / ".song.mp3.backup", row.backup);
        put(folder / ".song.mp3.making", row.making);
        { RewriteJournal(home / "journal").note(file); }
        RewriteJournal journal(home / "journal");
        ASSERT_THAT(journal.outstanding(), ElementsAre(file));
        CountingReporter reporter;
        EXPECT_EQ(recoverInterruptedRewrites(journal, reporter), row.restored) << row.killed;
        EXPECT_TRUE(journal.outstanding().empty()) << row.killed;
        EXPECT_TRUE(readFile(file) == *row.expected) << row.killed;
        EXPECT_EQ(namesIn(folder.path()).size(), row.isKept ? 2U : 1U) << row.killed;
        if (row.isKept) {
            EXPECT_TRUE(readFile(folder / ".song.mp3.replaced") == *row.file) << row.killed;
        }
        EXPECT_TRUE(RewriteJournal(home / "journal").outstanding().empty()) << row.killed;
    }
}

TEST(InterruptedRewrite, aBackupThatAPowerCutCutShortLosesToAFileThatReads) {
    struct Row {
        const char* found;
        std::string file;
        std::string expected;
        bool isKept; ///< what there is of the backup
    };

    const std::string blank(8192, '\0');
    const Row rows[] = {
        {"the new tag", newTag + audio, newTag + audio, false},
        {"the old tag", oldTag + audio, oldTag + audio, false},
        {"no tag", audio, audio, false},
        {"room in front of the old tag", blank + oldTag + audio, oldTag + audio, false},
        {"room in front of the audio", blank + audio, audio, false},
        {"the old header taken off", blank.substr(0, 10) + oldTag.substr(10) + audio,
         blank.substr(0, 10) + oldTag.substr(10) + audio, true},
        {"the new header alone", newTag.substr(0, 10) + blank.substr(0, newTag.size() - 10) + audio,
         newTag.substr(0, 10) + blank.substr(0, newTag.size() - 10) + audio, true},
        {"zeros alone", blank, blank, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.found);
        const TemporaryFolder folder;
        const auto file = folder.write("song.mp3", row.file);
        const RewritePaths paths(file);
        if (!copyMarked(file, paths.backup))
            GTEST_SKIP() << "no extended attributes here: the copy is synced instead";
        // Of the file as it was, which had other bytes after the header.
        ASSERT_EQ(::truncate(paths.backup.c_str(), 0), 0);
        std::ofstream(paths.backup, std::ios::binary) << "ID3 and what else there was";
        CountingReporter reporter;
        RewriteJournal journal(folder / "journal");
        journal.note(file);
        EXPECT_EQ(recoverInterruptedRewrites(journal, reporter), 0U);
        const bool couldTakeOut =
            row.file.size() == row.expected.size() || std::filesystem::file_size(file) != row.file.size();
        EXPECT_TRUE(readFile(file) == (couldTakeOut ? row.expected : row.file));
        EXPECT_FALSE(std::filesystem::exists(paths.backup));
        EXPECT_EQ(std::filesystem::exists(paths.replaced), row.isKept || !couldTakeOut);
    }
}

TEST(InterruptedRewrite, aFileThatIsNotThereStaysNotedForAWhile) {
    const TemporaryFolder drive; // nothing is mounted
    const TemporaryFolder home;
    const Date now = dateFromMicroseconds(1'700'000'000'000'000);
    const std::vector<std::filesystem::path> files{drive / "folder/song.mp3", drive / "song.mp3"};
    const auto lookAt = [&](Date date) {
        CountingReporter reporter;
        RewriteJournal journal(home / "journal");
        (void)recoverInterruptedRewrites(journal, reporter, date);
        EXPECT_EQ(reporter.errors, 0);
        return journal.outstanding();
    };
    { RewriteJournal(home / "journal").note(files[0]); }
    { RewriteJournal(home / "journal").note(files[1]); }
    EXPECT_EQ(lookAt(now), files);
    EXPECT_EQ(lookAt(now + std::chrono::hours(24 * 89)), files);
    drive.write("folder/.song.mp3.backup", oldTag + audio);
    EXPECT_THAT(lookAt(now + std::chrono::hours(24 * 91)), testing::IsEmpty());
    EXPECT_TRUE(readFile(files[0]) == oldTag + audio);
}

TEST(InterruptedRewrite, theNextWriteLooksAtALeftOverFirst) {
    const TemporaryFolder folder;
    const auto file = folder.write("song.mp3", std::string(10, '\0') + "half of a so");
    folder.write(".song.mp3.backup", oldTag + audio);
    TestRuntime runtime;
    CountingReporter reporter;
    RewriteJournal journal;
    const log::Capture log;
    SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
    runtime.run(writer.writeGenreTags({"Dub"}, file, true));
    EXPECT_EQ(audioOf(file), audio);
    EXPECT_EQ(id3::ID3TagContentReader(*id3::ID3TagEditor::read(file)).genre()->description, "Dub");
    EXPECT_EQ(*id3::ID3TagContentReader(*id3::ID3TagEditor::read(file)).title(), "Old");
    EXPECT_TRUE(
        log.contains("♻️ [METADATA] Restored song.mp3 from its backup after an interrupted write"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("song.mp3"));
}

TEST(InterruptedRewrite, aFailedProofRestoresEverythingAboutTheFile) {
    const TemporaryFolder folder;
    const auto file = folder.write("song.mp3", oldTag + audio);
    ::chmod(file.c_str(), 0604);
    const bool hasAttributes = ::setxattr(file.c_str(), "user.test", "kept", 4, 0) == 0;
    const auto modified = std::filesystem::last_write_time(file);
    RewriteJournal journal(folder / "journal");
    const std::vector<std::function<void(GuardedRewrite&)>> rewrites{
        [&](GuardedRewrite& guard) {
            guard.copyToBackup();
            put(file, "damaged");
        },
        [&](GuardedRewrite& guard) {
            guard.moveToBackup();
            guard.takePlace(folder.write("new", "other sound"));
        },
        [&](GuardedRewrite& guard) {
            guard.moveToBackup();
            guard.takePlace(folder / "absent"); // the second move fails
        },
    };
    for (const auto& rewrite : rewrites) {
        try {
            GuardedRewrite guard(file, journal, [](const auto&, const auto&) { return FileState::whole; });
            rewrite(guard);
            throw Error("the proof failed");
        } catch (const Error&) {
        }
        EXPECT_EQ(readFile(file), oldTag + audio);
        EXPECT_EQ(std::filesystem::status(file).permissions(), static_cast<std::filesystem::perms>(0604));
        EXPECT_EQ(std::filesystem::last_write_time(file), modified);
        EXPECT_EQ(::getxattr(file.c_str(), "user.test", nullptr, 0), hasAttributes ? 4 : -1);
        EXPECT_LT(::getxattr(file.c_str(), "user.velto.backup-length", nullptr, 0), 0);
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("journal", "song.mp3"));
        EXPECT_TRUE(journal.outstanding().empty());
    }
}

TEST(GuardedRewrite, rewritesOfOneFileTakeTurns) {
    const TemporaryFolder folder;
    const auto song = folder.write("song.mp3", oldTag + audio);
    const auto video = makeSound(folder, "song.m4a");
    RewriteJournal journal(folder / "journal");
    CountingReporter reporter;
    std::vector<std::thread> writers;
    for (char genre = 'a'; genre < 'e'; ++genre)
        writers.emplace_back([&, genre] {
            TestRuntime runtime;
            SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
            for (int turn = 0; turn < 8; ++turn) {
                const auto& file = turn % 2 == 0 ? song : video;
                runtime.run(writer.writeGenreTags({genre + std::to_string(turn)}, file, true));
            }
        });
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(reporter.errors, 0);
    EXPECT_TRUE(audioOf(song) == audio);
    EXPECT_EQ(id3::ID3TagContentReader(*id3::ID3TagEditor::read(song)).genre()->description,
              "a0 - a2 - a4 - a6 - b0 - b2 - b4 - b6 - c0 - c2 - c4 - c6 - d0 - d2 - d4 - d6");
    EXPECT_TRUE(journal.outstanding().empty());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("journal", "song.m4a", "song.mp3"));
}

TEST(RewriteJournal, survivesDamageAndStaysSmall) {
    const TemporaryFolder folder;
    const std::filesystem::path odd = "/music/a\nb.mp3";
    {
        RewriteJournal journal(folder / "journal");
        journal.note(odd);
        journal.note("/music/c.mp3");
        journal.strike("/music/c.mp3");
    }
    std::ofstream(folder / "journal", std::ios::app)
        << "garbage" << '\0' << "?99999999999999999/music/a\nb.mp3" << '\0' << "+/music/cut sho";
    {
        RewriteJournal journal(folder / "journal");
        EXPECT_THAT(journal.outstanding(), ElementsAre(odd));
        CountingReporter reporter;
        journal.strike(odd);
        for (int index = 0; index < 10'000; ++index) {
            journal.note("/music/" + std::to_string(index));
            journal.strike("/music/" + std::to_string(index));
        }
    }
    EXPECT_LT(std::filesystem::file_size(folder / "journal"), 70U << 10);
    EXPECT_TRUE(RewriteJournal(folder / "journal").outstanding().empty());
    RewriteJournal unwritable("/proc/nowhere/journal");
    unwritable.note(odd);
    EXPECT_EQ(unwritable.outstanding().size(), 1U);
}

// Whenever the process dies, the next start finds every song whole.
TEST(InterruptedRewrite, aKilledProcessLosesNothing) {
    const TemporaryFolder folder;
    std::string sound = "\xFF\xFB";
    for (int index = 0; index < 3'000'000; ++index)
        sound += static_cast<char>(index * 31 ^ index >> 9);
    const std::string carried =
        frameOf(3, "TIT2", raw("\0Title")) +
        frameOf(3, "APIC", raw("\0image/png\0\x03\0\x89PNG") + std::string(50'000, 'p'));
    const std::string head = tagOf(3, frameOf(3, "GEOB", std::string(700'000, 'z')) + carried);
    const auto file = folder.write("song.mp3", head + sound);
    const auto before = carriedFrames(*id3::ID3TagEditor::read(file));
    ASSERT_EQ(before.size(), 2U);
    const RewritePaths paths(file);
    const auto hasBackup = [&] { return std::filesystem::exists(paths.backup); };
    const auto sizeOf = [](const std::filesystem::path& path) -> std::optional<std::uintmax_t> {
        std::error_code isGone;
        const auto size = std::filesystem::file_size(path, isGone);
        return isGone ? std::nullopt : std::optional(size);
    };
    std::uintmax_t size = 0;
    const std::vector<std::function<bool()>> moments{
        [&] { return sizeOf(paths.backup).value_or(size) != size; }, // a part of a copy
        hasBackup,
        [&] { return hasBackup() && sizeOf(file) != size; },
        [&] { return hasBackup() && !readFile(file).starts_with("ID3"); },
    };
    for (std::size_t round = 0; round < 24; ++round) {
        folder.write("song.mp3", head + sound);
        size = std::filesystem::file_size(file);
        const pid_t child = ::fork();
        if (child == 0) {
            TestRuntime runtime;
            CountingReporter reporter;
            RewriteJournal journal(folder / "journal");
            SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
            // Genres that grow and shrink: every way of making room comes by.
            for (std::size_t turn = round;; ++turn)
                runtime.run(writer.writeGenreTags({std::string(turn * 79'190 % 200'000, 'g')}, file, false));
        }
        while (!moments[round % moments.size()]()) {
            ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the writer ended by itself";
            ::sched_yield();
        }
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        CountingReporter reporter;
        RewriteJournal journal(folder / "journal");
        (void)recoverInterruptedRewrites(journal, reporter);
        ASSERT_EQ(reporter.errors, 0);
        ASSERT_TRUE(audioOf(file) == sound) << round;
        ASSERT_TRUE(carriedFrames(*id3::ID3TagEditor::read(file)) == before) << round;
        ASSERT_THAT(namesIn(folder.path()), ElementsAre("journal", "song.mp3")) << round;
    }
}
