#include "platform/files/UserDefaults.hpp"
#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using test::TestRuntime;
using Bytes = UserDefaults::Bytes;

TEST(UserDefaults, ValuesSurviveWhateverBytesTheyHave) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    const fs::path file = folder / "defaults.json";
    const std::string oddKey = "LibraryBookmark_\xFFMusik \"\n";
    {
        UserDefaults defaults(file, runtime.executors());
        runtime.run(defaults.setData(oddKey, Bytes{0, 255, 34}));
        runtime.run(defaults.setData("none", Bytes{}));
        runtime.run(defaults.setData("four", Bytes{'a', 0, 128, 'd'}));
        runtime.run(defaults.setString("text", "Grüße"));
        runtime.run(defaults.setString("gone", "x"));
        runtime.run(defaults.remove("gone"));
    }
    const UserDefaults again(file, runtime.executors());
    EXPECT_EQ(again.data(oddKey), (Bytes{0, 255, 34}));
    EXPECT_EQ(again.data("none"), Bytes{});
    EXPECT_EQ(again.data("four"), (Bytes{'a', 0, 128, 'd'}));
    EXPECT_EQ(again.string("text"), "Grüße");
    EXPECT_EQ(again.data("text"), std::nullopt); // of the other kind
    EXPECT_EQ(again.keys().size(), 4U);
    struct ::stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST(UserDefaults, ADamagedFileIsSetAsideAndTold) {
    TestRuntime runtime;
    const std::array<std::string, 8> damaged = {
        "",
        "{\"version\":1,\"values\":[{\"key\":\"a\",\"te",
        "[]",
        "{\"version\":2,\"values\":[]}",
        "{\"version\":1,\"values\":[{\"key\":\"a\",\"data\":\"!!!!\"}]}",
        "{\"version\":1,\"values\":[{\"key\":\"a\",\"data\":\"Zg=\"}]}",
        "{\"version\":1,\"values\":[{\"key\":\"a\",\"data\":\"====\"}]}",
        std::string(100'000, '[')};
    for (const std::string& content : damaged) {
        const TemporaryFolder folder;
        const fs::path file = folder.write("defaults.json", content);
        const log::Capture log;
        UserDefaults defaults(file, runtime.executors());
        EXPECT_TRUE(defaults.keys().empty());
        EXPECT_TRUE(log.contains("defaults.json.damaged-"));
        EXPECT_FALSE(fs::exists(file));
        const fs::path aside = fs::directory_iterator(folder.path())->path();
        EXPECT_EQ(test::readFile(aside), content);
        runtime.run(defaults.setString("a", "b"));
        EXPECT_EQ(UserDefaults(file, runtime.executors()).string("a"), "b");
    }
}

TEST(UserDefaults, AFailedWriteIsAnErrorAndALaterOneSavesAll) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    const fs::path file = folder / "missing" / "defaults.json";
    UserDefaults defaults(file, runtime.executors());
    EXPECT_THROW(runtime.run(defaults.setString("a", "1")), SystemError);
    EXPECT_EQ(defaults.string("a"), "1");
    fs::create_directory(folder / "missing");
    runtime.run(defaults.setString("b", "2"));
    EXPECT_EQ(UserDefaults(file, runtime.executors()).string("a"), "1");
}

Task<void> setAndCount(UserDefaults& defaults, int number, int& done) {
    co_await defaults.setString("last", std::to_string(number));
    ++done;
}

TEST(UserDefaults, OfOverlappingWritesTheLastOneStays) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    UserDefaults defaults(folder / "defaults.json", runtime.executors());
    int done = 0;
    for (int i = 1; i <= 40; ++i)
        spawn(runtime.main(), setAndCount(defaults, i, done));
    runtime.runUntil([&] { return done == 40; });
    EXPECT_EQ(UserDefaults(folder / "defaults.json", runtime.executors()).string("last"), "40");
}

} // namespace
} // namespace velto
