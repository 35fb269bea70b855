#include "platform/files/ValueFile.hpp"
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
using Bytes = ValueFile::Bytes;

TEST(ValueFile, ValuesSurviveWhateverBytesTheyHave) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    const fs::path file = folder / "defaults.json";
    const std::string oddKey = "LibraryBookmark_\xFFMusik \"\n";
    {
        ValueFile values(file, runtime.executors());
        runtime.run(values.setData(oddKey, Bytes{0, 255, 34}));
        runtime.run(values.setData("none", Bytes{}));
        runtime.run(values.setData("four", Bytes{'a', 0, 128, 'd'}));
        runtime.run(values.setString("text", "Grüße"));
        runtime.run(values.setString("gone", "x"));
        runtime.run(values.remove("gone"));
    }
    const ValueFile again(file, runtime.executors());
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

TEST(ValueFile, ADamagedFileIsSetAsideAndTold) {
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
        ValueFile values(file, runtime.executors());
        EXPECT_TRUE(values.keys().empty());
        EXPECT_TRUE(log.contains("defaults.json.damaged-"));
        EXPECT_FALSE(fs::exists(file));
        const fs::path aside = fs::directory_iterator(folder.path())->path();
        EXPECT_EQ(test::readFile(aside), content);
        runtime.run(values.setString("a", "b"));
        EXPECT_EQ(ValueFile(file, runtime.executors()).string("a"), "b");
    }
}

TEST(ValueFile, AFailedWriteIsAnErrorAndALaterOneSavesAll) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    const fs::path file = folder / "missing" / "defaults.json";
    ValueFile values(file, runtime.executors());
    EXPECT_THROW(runtime.run(values.setString("a", "1")), SystemError);
    EXPECT_EQ(values.string("a"), "1");
    fs::create_directory(folder / "missing");
    runtime.run(values.setString("b", "2"));
    EXPECT_EQ(ValueFile(file, runtime.executors()).string("a"), "1");
}

Task<void> setAndCount(ValueFile& values, int number, int& done) {
    co_await values.setString("last", std::to_string(number));
    ++done;
}

TEST(ValueFile, OfOverlappingWritesTheLastOneStays) {
    TestRuntime runtime;
    const TemporaryFolder folder;
    ValueFile values(folder / "defaults.json", runtime.executors());
    int done = 0;
    for (int i = 1; i <= 40; ++i)
        spawn(runtime.main(), setAndCount(values, i, done));
    runtime.runUntil([&] { return done == 40; });
    EXPECT_EQ(ValueFile(folder / "defaults.json", runtime.executors()).string("last"), "40");
}

} // namespace
} // namespace velto
