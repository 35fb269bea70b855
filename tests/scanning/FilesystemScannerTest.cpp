#include "scanning/FilesystemScanner.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/core/Error.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/files/FolderListing.hpp"
#include "platform/files/ServiceError.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/ScanProgress.hpp"
#include "support/TemporaryFolder.hpp"

#include <asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// What one walk gives; on one thread, as this also runs in forked children.
FolderContents walk(const WalkSettings& settings, const WalkWatch& watch = {}) {
    asio::io_context context;
    FolderContents contents;
    std::exception_ptr failure;
    asio::co_spawn(context, SimpleFilesystemScanner().scanDirectory(settings, watch),
                   [&](const std::exception_ptr& thrown, FolderContents result) {
                       failure = thrown;
                       contents = std::move(result);
                   });
    context.run();
    if (failure) std::rethrow_exception(failure);
    return contents;
}

std::vector<std::string> relPaths(const std::string& root, const std::optional<std::string>& include = {},
                                  const std::optional<std::string>& exclude = {}) {
    std::vector<std::string> paths;
    for (const FileSystemInfo& file : walk({root, include, exclude}).files)
        paths.push_back(file.relPath);
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
    EXPECT_THAT(relPaths(root, "*.{mp3,flac}", "one*"), ElementsAre("sub/two.flac"));
    // The count of dropped characters is of the root as given.
    EXPECT_THAT(relPaths(root + "/"), UnorderedElementsAre("ne.MP3", "ub/two.flac"));

    const std::array<timespec, 2> times = {timespec{0, 0}, timespec{-2, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "One.MP3").c_str(), times.data(), 0), 0);
    const auto files = walk({root, "one*", std::nullopt}).files;
    ASSERT_EQ(files.size(), 1U);
    const auto file = files.begin();
    EXPECT_EQ(file->absPath, root + "/One.MP3");
    EXPECT_EQ(file->filename, "One.MP3");
    EXPECT_EQ(file->ext, "mp3");
    EXPECT_EQ(file->sizeBytes, 5);
    EXPECT_EQ(file->mtime, dateFromMicroseconds(-1'500'000));
    EXPECT_EQ(file->inode, std::nullopt);
    EXPECT_EQ(file->fileNumber, files::identityOf(file->absPath)->inode);
}

/// Runs `question` as nobody, in a process of its own: root may read every folder.
bool asNobody(const std::function<bool()>& question) {
    const pid_t child = ::fork();
    if (child == 0) {
        static_cast<void>(::setresuid(65534, 65534, 65534));
        ::_exit(::geteuid() != 0 && question() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(ScanDirectory, AFolderThatCannotBeReadIsSaid) {
    const TemporaryFolder folder;
    folder.write("closed/a.mp3", "");
    folder.write("open/b.mp3", "");
    folder.write("names only/c.mp3", "");
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(folder / "closed", fs::perms::none);
    fs::permissions(folder / "names only", fs::perms(0744));
    EXPECT_TRUE(asNobody([&] {
        const FolderContents contents = walk({folder.path().string(), {}, {}});
        const UnreadPlaces& unread = contents.unread;
        return contents.files.size() == 1 && contents.files[0].relPath == "open/b.mp3" &&
               unread.contain("closed/a.mp3") && unread.contain("closed/deep/er.mp3") &&
               unread.contain("names only/c.mp3") && !unread.contain("closed too/a.mp3") &&
               !unread.contain("names only/d.mp3") && !unread.contain("open/gone.mp3");
    }));
    EXPECT_TRUE(asNobody([&] {
        try {
            walk({(folder / "closed").string(), {}, {}});
        } catch (const ServiceError& failure) {
            return failure.kind() == ServiceError::Case::directoryAccessFailed &&
                   failure.underlying() == "Permission denied";
        }
        return false;
    }));
}

TEST(ScanDirectory, APatternThatTakesTooLongIsSaidAndACancelledWalkEnds) {
    const TemporaryFolder folder;
    folder.write(std::string(100, 'a') + ".mp3", "");
    const std::string pattern = "(a+)+b*(a+)+b*(a+)+x";
    for (const WalkSettings& settings : {WalkSettings{folder.path().string(), pattern, {}},
                                         WalkSettings{folder.path().string(), {}, pattern}}) {
        try {
            walk(settings);
            ADD_FAILURE() << "the walk went on";
        } catch (const ServiceError& failure) {
            EXPECT_EQ(failure.errorDescription(), "Invalid glob pattern: " + pattern);
        }
    }
    for (int i = 0; i < 1'000; ++i)
        folder.write(std::to_string(i) + ".mp3", "");
    WalkWatch watch;
    std::size_t seen = 0;
    watch.progress = [&](std::size_t files) {
        seen = files;
        watch.token.cancel();
    };
    EXPECT_THROW(walk({folder.path().string(), {}, {}}, watch), CancellationError);
    EXPECT_EQ(seen, 500U);
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
