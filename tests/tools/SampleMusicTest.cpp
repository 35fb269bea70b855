#include "support/TemporaryFolder.hpp"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

#include <map>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string make(const fs::path& target, std::vector<std::string> options, int* status = nullptr) {
    options.insert(options.begin(), {"/usr/bin/python3", VELTO_SAMPLE_MUSIC, target.string()});
    return runProgram(options, status);
}

/// Relative path to content.
std::map<std::string, std::string> contents(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            files[fs::relative(entry.path(), folder).string()] = readFile(entry.path());
    return files;
}

TEST(SampleMusic, MakesTheSameOddLibraryEachTimeAndLeavesForeignFoldersAlone) {
    const TemporaryFolder folder;
    EXPECT_THAT(make(folder / "one", {"--seconds", "0.5"}), HasSubstr("61 files"));
    make(folder / "two", {"--seconds", "0.5"});
    const auto one = contents(folder / "one");
    const auto two = contents(folder / "two");
    ASSERT_EQ(one.size(), two.size());
    for (const auto& [path, content] : one)
        EXPECT_TRUE(two.contains(path) && two.at(path) == content) << path;
    ASSERT_EQ(one.size(), 62U) << "60 songs, one of an unsupported kind, the marker";

    std::map<std::string, int> kinds;
    std::map<std::string, int> same;
    std::string names;
    for (const auto& [path, content] : one) {
        names += path;
        ++kinds[fs::path(path).extension().string()];
        ++same[content];
    }
    for (const char* extension : {".mp3", ".m4a", ".aac", ".flac", ".wav", ".aiff", ".aif", ".AIFF", ".opus"})
        EXPECT_GE(kinds[extension], 1) << extension;
    EXPECT_EQ(same.size(), one.size() - 1) << "one song lies in two folders";
    for (const char* odd : {"line\nbreak", "\xff\xfe", "-rf", "東京", "🎉"})
        EXPECT_THAT(names, HasSubstr(odd));

    // Run again, the folder is made anew; one with somebody's file in it is not touched.
    folder.write("one/left over.mp3", "x");
    make(folder / "one", {"--count", "3", "--seconds", "0.2"});
    EXPECT_EQ(contents(folder / "one").size(), 5U);
    folder.write("mine/song.mp3", "precious");
    int status = 0;
    make(folder / "mine", {"--count", "1"}, &status);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(contents(folder / "mine"), (std::map<std::string, std::string>{{"song.mp3", "precious"}}));
}

} // namespace
} // namespace velto::test
