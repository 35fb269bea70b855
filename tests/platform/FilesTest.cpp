#include "platform/files/AtomicReplace.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/files/FolderGrants.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;

TEST(ReplaceFile, ReplacesWholeAndLeavesNothingBeside) {
    const TemporaryFolder folder;
    const fs::path file = folder.write("defaults", std::string(10'000, 'x'));
    folder.write("defaults.new", "left over from a crash");
    files::replaceFile(file, "short");
    EXPECT_EQ(test::readFile(file), "short");
    EXPECT_FALSE(files::exists(folder / "defaults.new"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    fs::create_directories(folder / "taken" / "inside"); // a folder that is not empty cannot be replaced
    EXPECT_THROW(files::replaceFile(folder / "taken", "x"), SystemError);
    EXPECT_FALSE(files::exists(folder / "taken.new"));
}

TEST(FileAttributes, WhatCannotBeAskedIsAbsentOrFalse) {
    const TemporaryFolder folder;
    const fs::path file = folder.write("a", "x");
    fs::create_symlink(folder / "nowhere", folder / "dangling");
    EXPECT_FALSE(files::exists(folder / "dangling"));
    EXPECT_FALSE(files::isReadable(folder / "nothing"));
    EXPECT_FALSE(files::creationDate(folder / "nothing"));
    if (const auto made = files::creationDate(file)) { // not every file system keeps it
        fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1'000));
        EXPECT_EQ(files::creationDate(file), made);
    }
}

TEST(FolderGrants, AGrantKnowsItsFolder) {
    const TemporaryFolder folder;
    const fs::path music = folder / "Music \xFF";
    fs::create_directory(music);
    const auto grant = FolderGrants::makeGrant(music / "");
    EXPECT_EQ(FolderGrants::resolve(grant).path, music);
    EXPECT_FALSE(FolderGrants::resolve(grant).isStale);

    fs::rename(music, folder / "old"); // keeps the old inode in use
    fs::create_directory(music);
    EXPECT_TRUE(FolderGrants::resolve(grant).isStale);
}

FolderGrantError::Case failureOf(const FolderGrants::Grant& grant) {
    try {
        static_cast<void>(FolderGrants::resolve(grant));
    } catch (const FolderGrantError& error) {
        return error.kind();
    }
    throw std::logic_error("it resolved");
}

TEST(FolderGrants, MissingFoldersAndForeignBytesAreTypedErrors) {
    using Case = FolderGrantError::Case;
    const TemporaryFolder folder;
    fs::create_directory(folder / "music");
    const auto grant = FolderGrants::makeGrant(folder / "music");
    fs::remove(folder / "music");
    EXPECT_EQ(failureOf(grant), Case::folderNotFound);
    folder.write("music", "now a file");
    EXPECT_EQ(failureOf(grant), Case::notAFolder);
    EXPECT_THROW(static_cast<void>(FolderGrants::makeGrant(folder / "music")), FolderGrantError);

    auto withNul = grant, otherVersion = grant, relative = grant;
    withNul.push_back(0);
    otherVersion[3] = '2';
    relative[20] = 'x';
    const FolderGrants::Grant header(grant.begin(), grant.begin() + 20);
    for (const auto& foreign : {FolderGrants::Grant{}, header, withNul, otherVersion, relative})
        EXPECT_EQ(failureOf(foreign), Case::invalidGrant);
}

TEST(FolderGrants, StartsAndStopsBalance) {
    const TemporaryFolder folder;
    FolderGrants grants;
    auto resolved = FolderGrants::resolve(FolderGrants::makeGrant(folder.path()));
    EXPECT_TRUE(grants.startAccessing(resolved));
    resolved.path /= "";
    EXPECT_TRUE(grants.startAccessing(resolved));
    resolved.isReadable = false;
    EXPECT_FALSE(grants.startAccessing(resolved));
    EXPECT_EQ(grants.activeCount(folder.path()), 2);
    grants.stopAccessing(folder.path());
    grants.stopAccessing(folder.path());
    grants.stopAccessing(folder.path()); // one too many is only logged
    EXPECT_EQ(grants.activeCount(), 0);
}

} // namespace
} // namespace velto
