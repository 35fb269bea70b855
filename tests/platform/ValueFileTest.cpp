#include "platform/files/ValueFile.hpp"
#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using test::TestRuntime;
using Bytes = ValueFile::Bytes;

class ValueFileTest : public testing::Test {
  protected:
    /// What the next start of the program reads.
    std::optional<std::string> stored(const std::string& key) {
        return ValueFile(file, runtime.executors()).string(key);
    }

    TestRuntime runtime;
    TemporaryFolder folder;
    fs::path file = folder / "defaults.json";
};

TEST_F(ValueFileTest, ValuesSurviveWhateverBytesTheyHave) {
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
    const ValueFile read(file, runtime.executors());
    EXPECT_EQ(read.data(oddKey), (Bytes{0, 255, 34}));
    EXPECT_EQ(read.data("none"), Bytes{});
    EXPECT_EQ(read.data("four"), (Bytes{'a', 0, 128, 'd'}));
    EXPECT_EQ(read.string("text"), "Grüße");
    EXPECT_EQ(read.data("text"), std::nullopt); // of the other kind
    EXPECT_EQ(read.keys().size(), 4U);
}

TEST_F(ValueFileTest, ADamagedFileIsSetAsideAndNamedInTheLog) {
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
        fs::remove_all(folder.path());
        folder.write("defaults.json", content);
        const log::Capture log;
        ValueFile values(file, runtime.executors());
        EXPECT_TRUE(values.keys().empty());
        EXPECT_TRUE(log.contains("defaults.json.damaged-"));
        EXPECT_FALSE(fs::exists(file));
        const fs::path aside = fs::directory_iterator(folder.path())->path();
        EXPECT_EQ(test::readFile(aside), content);
        runtime.run(values.setString("a", "b"));
        EXPECT_EQ(stored("a"), "b");
    }
}

TEST_F(ValueFileTest, AFailedWriteIsAnErrorAndALaterOneSavesAll) {
    file = folder / "missing" / "defaults.json";
    ValueFile values(file, runtime.executors());
    EXPECT_THROW(runtime.run(values.setString("a", "1")), SystemError);
    EXPECT_EQ(values.string("a"), "1");
    fs::create_directory(folder / "missing");
    runtime.run(values.setString("b", "2"));
    EXPECT_EQ(stored("a"), "1");
}

Task<void> setAndCount(ValueFile& values, int number, int& done) {
    co_await values.setString("last", std::to_string(number));
    ++done;
}

TEST_F(ValueFileTest, OfOverlappingWritesTheLastOneStays) {
    ValueFile values(file, runtime.executors());
    int done = 0;
    for (int i = 1; i <= 40; ++i)
        spawn(runtime.main(), setAndCount(values, i, done));
    runtime.runUntil([&] { return done == 40; });
    EXPECT_EQ(stored("last"), "40");
}

} // namespace
} // namespace velto
