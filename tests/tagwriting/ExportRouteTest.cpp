#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "platform/media/Export.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/TagFixtures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>

using namespace velto;
using namespace velto::test;
using testing::ElementsAre;

namespace {

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
        write({"Techno", "House"}, file);
        EXPECT_EQ(genreOf(file), "House - Techno") << name;
        write({"Dub"}, file, true);
        EXPECT_EQ(genreOf(file), "Dub - House - Techno") << name;
        EXPECT_EQ(std::filesystem::status(file).permissions(), static_cast<std::filesystem::perms>(0640))
            << name;
        runtime.run(writer.clearGenreTags(file));
        EXPECT_EQ(genreOf(file), "(none)") << name;
        EXPECT_EQ(soundOf(file), sound) << name;
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
    const std::string before = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "";
    ::setenv("TMPDIR", "/dev/shm", 1);
    write({"Dub"}, file);
    before.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", before.c_str(), 1);
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
