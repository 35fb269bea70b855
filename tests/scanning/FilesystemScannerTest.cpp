#include "scanning/FilesystemScanner.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/core/Error.hpp"
#include "platform/files/FolderListing.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/ScanProgress.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::vector<std::string> relPaths(const std::string& root, const std::optional<std::string>& include = {},
                                  const std::optional<std::string>& exclude = {}) {
    // One thread: this also runs in forked children.
    asio::io_context context;
    FileStream stream;
    asio::co_spawn(context, SimpleFilesystemScanner().scanDirectory(root, include, exclude),
                   [&](const std::exception_ptr& failure, FileStream result) {
                       if (failure) std::rethrow_exception(failure);
                       stream = std::move(result);
                   });
    context.run();
    std::vector<std::string> paths;
    while (const auto file = stream.next())
        paths.push_back(file->relPath);
    return paths;
}

TEST(MatchesGlob, ByExtensionByNameAndByFallback) {
    struct Case {
        const char* path;
        const char* glob;
        bool matches;
    };

    const std::array cases = {
        Case{"a/b.MP3", "*.{mp3, WAV ,m4a}", true}, // blanks and case
        Case{"b.wav", "x{mp3,wav}y", true},         // around the braces nothing counts
        Case{"b.flac", "*.{mp3,wav}", false},
        Case{"b.mp3", "}{", false},
        Case{"b.Mp3", "*.mP3", true},
        Case{"b.tar.mp3", "*.tar.mp3", false}, // the extension is mp3
        Case{"dir/Live set.wav", "live*", true},
        Case{"live/x.wav", "live*", false}, // the name alone counts
        Case{"a/b.mp3", "a/*", false},
        Case{"b\xFF.mp3", "b?.mp3", true}, // a broken byte is one character
        Case{"b1xmp3", "b?.mp3", false},   // a dot is a dot
        Case{"b.mp3", "", false},
        Case{"b(1.mp3", "*(1*", true},  // does not compile: a part of the name
        Case{"b(x.mp3", "*(X*", false}, // whose case is kept
    };
    for (const Case& each : cases)
        EXPECT_EQ(SimpleFilesystemScanner().matchesGlob(each.path, each.glob), each.matches)
            << each.path << " " << each.glob;
}

TEST(ScanDirectory, GlobsExtensionsAndAttributes) {
    const TemporaryFolder folder;
    folder.write("One.MP3", "12345");
    folder.write("sub/two.flac", "");
    folder.write("sub/three.txt", "");
    folder.write("four", "");
    const std::string root = folder.path().string();
    EXPECT_THAT(relPaths(root), UnorderedElementsAre("One.MP3", "sub/two.flac"));
    EXPECT_THAT(relPaths(root, "*.{mp3}"), ElementsAre("One.MP3"));
    EXPECT_THAT(relPaths(root, std::nullopt, "*.mp3"), ElementsAre("sub/two.flac"));
    EXPECT_THAT(relPaths(root, ""), ElementsAre());
    EXPECT_THAT(relPaths(root, std::nullopt, ""), UnorderedElementsAre("One.MP3", "sub/two.flac"));
    // The count of dropped characters is of the root as given.
    EXPECT_THAT(relPaths(root + "/"), UnorderedElementsAre("ne.MP3", "ub/two.flac"));

    const std::array<timespec, 2> times = {timespec{0, 0}, timespec{-2, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "One.MP3").c_str(), times.data(), 0), 0);
    test::TestRuntime runtime;
    const auto file = runtime.run(SimpleFilesystemScanner().scanDirectory(root, "one*", std::nullopt)).next();
    ASSERT_TRUE(file);
    EXPECT_EQ(file->absPath, root + "/One.MP3");
    EXPECT_EQ(file->filename, "One.MP3");
    EXPECT_EQ(file->ext, "mp3");
    EXPECT_EQ(file->sizeBytes, 5);
    EXPECT_EQ(file->mtime, dateFromMicroseconds(-1'500'000));
    EXPECT_EQ(file->inode, std::nullopt);
}

TEST(ScanDirectory, AFolderThatCannotBeReadIsPassedOver) {
    const TemporaryFolder folder;
    folder.write("closed/a.mp3", "");
    folder.write("open/b.mp3", "");
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(folder / "closed", fs::perms::none);
    const pid_t child = ::fork();
    if (child == 0) { // as nobody: root reads every folder
        static_cast<void>(::setresuid(65534, 65534, 65534));
        const bool isRight = relPaths(folder.path().string()) == std::vector<std::string>{"open/b.mp3"};
        ::_exit(isRight && ::geteuid() != 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(FolderListing, AFailureInTheMiddleIsNotTheEnd) {
    const TemporaryFolder folder;
    folder.write("a.mp3", "");
    const int place = ::open("/dev/null", O_RDONLY | O_CLOEXEC); // the listing gets the same descriptor
    ::close(place);
    files::FolderListing listing(folder.path().string(), false);
    ASSERT_TRUE(listing.isOpen());
    const files::Descriptor other(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::dup3(other.get(), place, O_CLOEXEC), place);
    EXPECT_THROW(static_cast<void>(listing.next()), SystemError);
}

TEST(ScanDirectory, PathsLongerThanASystemCallTakesAreListed) {
    const TemporaryFolder folder;
    const std::string name(200, 'd');
    int at = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int depth = 0; depth < 45; ++depth) { // 9,000 bytes
        ASSERT_EQ(::mkdirat(at, name.c_str(), 0700), 0);
        const int next = ::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(at);
        at = next;
    }
    ::close(::openat(at, "deep.mp3", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ::close(at);
    const auto paths = relPaths(folder.path().string());
    ASSERT_EQ(paths.size(), 1U);
    EXPECT_EQ(paths.front().size(), 45U * 201 + 8);
}

TEST(QuickSig, IsTheBeginningOfTheDigestOfItsTexts) {
    const SHA256SignatureGenerator generator;
    FileSystemInfo info;
    info.relPath = "a/b.mp3";
    info.sizeBytes = 100;
    info.mtime = dateFromMicroseconds(1'700'000'000'999'999);
    EXPECT_EQ(generator.quickSig(info), "ad7baf5a4b590cde"); // of "100|1700000000|a/b.mp3"
    info.absPath = "/moved/a/b.mp3";
    EXPECT_EQ(generator.quickSig(info), "ad7baf5a4b590cde");
    info.inode = 7;
    EXPECT_EQ(generator.quickSig(info), "1a7f56df503f30b4"); // "...|7"
    FileSystemInfo early;
    early.relPath = "x";
    early.sizeBytes = -1;
    early.mtime = dateFromMicroseconds(-500'000);
    EXPECT_EQ(generator.quickSig(early), "c3582f74f8ec2d3e"); // "-1|0|x"
}

TEST(ScanProgress, TheEstimateNeverDividesByNothing) {
    EXPECT_DOUBLE_EQ(estimatedTimeRemaining(3, 0, 10), 30);
    EXPECT_DOUBLE_EQ(estimatedTimeRemaining(4, 2, 10), 16);
    EXPECT_DOUBLE_EQ(estimatedTimeRemaining(4, 10, 10), 0);
}

} // namespace
} // namespace velto
