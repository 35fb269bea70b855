#include "scanning/FileFinder.hpp"
#include "scanning/ScannerFixture.hpp"

#include <gmock/gmock.h>

#include <array>

namespace velto {
namespace {

using test::ScannerTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

TEST(FindArguments, OneNameForEachPieceOfTheInclude) {
    EXPECT_THAT(findArguments({"/m", std::nullopt, std::nullopt}),
                ElementsAre("/m", "-type", "f", "(", "-name", "*.mp3", "-o", "-name", "*.m4a", "-o", "-name",
                            "*.aif", "-o", "-name", "*.aiff", "-o", "-name", "*.wav", "-o", "-name", "*.flac",
                            ")"));
    EXPECT_THAT(findArguments({"/m", "x{a, b }dropped", std::nullopt}),
                ElementsAre("/m", "-type", "f", "(", "-name", "xa", "-o", "-name", "xb", ")"));
    EXPECT_THAT(findArguments({"/m", "-delete", std::nullopt}),
                ElementsAre("/m", "-type", "f", "(", "-name", "-delete", ")"));
}

TEST(MatchesExcludePattern, ExpressionsAndPartsAnywhereInThePath) {
    struct Case {
        const char* path;
        const char* glob;
        bool matches;
    };

    const std::array cases = {
        Case{"/m/Old/a.mp3", "x, Old ,y", true},
        Case{"/m/old/a.mp3", "Old", false}, // a part keeps its case
        Case{"/m/a.MP3", "*.mp3", true},    // an expression does not
        Case{"/m/set.mp3 rips/a.wav", "*.mp3", true},
        Case{"/m/amp3", "*.mp3", false},
        Case{"/m/(a.wav", "(*,a.wav", true}, // what does not compile is passed over
        Case{"/m/a.wav", "", false},
        Case{"/m/a.wav", "b,", false},
    };
    for (const Case& each : cases)
        EXPECT_EQ(matchesExcludePattern(each.path, each.glob), each.matches) << each.path << " " << each.glob;
}

TEST_F(ScannerTest, UnindexedFilesAreThoseThatFindSeesAndTheStoreLacks) {
    addSongs(25);
    scan();
    addSong("sub/New - Song.wav");
    addSong(".hidden/Seen - By find.wav");
    addSong("Not - Seen.WAV");
    library->edit().excludeGlob = "skip";
    addSong("skip/this.wav");
    const log::Capture log;
    EXPECT_THAT(runtime.run(scanner->findUnindexedFiles(library)),
                UnorderedElementsAre(music / "sub/New - Song.wav", music / ".hidden/Seen - By find.wav"));
    EXPECT_TRUE(log.contains("🔍 [REFRESH] Found 27 files in filesystem for library: Music"));
    EXPECT_TRUE(log.contains("🔍 [REFRESH] Found 25 files in database"));
    EXPECT_TRUE(log.contains(", and 5 more]"));
    EXPECT_TRUE(log.contains("🔍 [REFRESH] Missing file: sub/New - Song.wav"));
    EXPECT_TRUE(log.contains("🔍 [REFRESH] Found 2 missing files"));
}

TEST_F(ScannerTest, AFailingFindIsToldWithItsOwnWords) {
    const auto failure = [this] {
        try {
            runtime.run(scanner->findUnindexedFiles(library));
        } catch (const ScannerError& error) {
            return error.errorDescription();
        }
        return std::string("no failure");
    };
    addSong("\xFF.wav");
    EXPECT_EQ(failure(), "Command execution failed: Failed to execute find command: "
                         "Command execution failed: Could not decode find output");
    std::filesystem::remove_all(music);
    EXPECT_THAT(failure(), StartsWith("Command execution failed: Failed to execute find command: "
                                      "Command execution failed: find command failed: "));
    EXPECT_THAT(failure(), HasSubstr("No such file"));
}

} // namespace
} // namespace velto
