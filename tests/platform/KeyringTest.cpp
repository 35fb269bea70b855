#include "platform/keyring/FileKeyring.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace velto {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using Lines = std::vector<std::string>;

Lines linesOf(const std::string& text) {
    Lines lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

Lines probe(const Lines& launcher, const std::string& limit, const Lines& commands) {
    Lines call = launcher;
    call.insert(call.end(), {KEYRING_PROBE, limit});
    call.insert(call.end(), commands.begin(), commands.end());
    return linesOf(test::runProgram(call));
}

TEST(Keyring, KeepsOneTokenInARealKeyring) {
    EXPECT_EQ(
        probe({WITH_KEYRING, "unlocked"}, "30",
              {"get", "delete", "save=first", "get", "save=second é\t\x01", "get", "get@other", "delete",
               "get", "save=\xff", "get", "save=storm", "storm"}),
        (Lines{"(absent)", "deleted", "saved", "first", "saved", "second é\t\x01", "(absent)", "deleted",
               "(absent)", "Unexpected data format in Keychain", "(absent)", "saved", "calm"}));
}

const Lines allFail = {"Unable to save authentication token to Keychain",
                       "Unable to retrieve authentication token from Keychain",
                       "Unable to delete authentication token from Keychain"};

TEST(Keyring, FailsIfThereIsNoBus) {
    EXPECT_EQ(probe({"/usr/bin/env", "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"}, "30",
                    {"save=a", "get", "delete"}),
              allFail);
}

TEST(Keyring, FailsIfNobodyUnlocksTheKeyring) {
    EXPECT_EQ(probe({WITH_KEYRING, "locked"}, "0.5", {"save=a"}), Lines{allFail.front()});
    EXPECT_EQ(probe({WITH_KEYRING, "unlocked"}, "5", {"save=a", "lock", "get", "delete", "get@other"}),
              (Lines{"saved", "locked", allFail[1], allFail[2], "(absent)"}));
}

TEST(Keyring, GivesUpOnABusThatNeverAnswers) {
    const TemporaryFolder folder;
    const std::string path = folder / "bus";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 8), 0);
    EXPECT_EQ(probe({"/usr/bin/env", "DBUS_SESSION_BUS_ADDRESS=unix:path=" + path}, "0.2",
                    {"save=a", "get", "delete"}),
              allFail);
    ::close(listener);
}

TEST(FileKeyring, RefusesAFileThatIsNotSafe) {
    using Case = TokenFileError::Case;
    const TemporaryFolder folder;
    const auto file = [&](const char* name, const std::string& content, mode_t mode) {
        const fs::path path = folder.write(name, content);
        ::chmod(path.c_str(), mode);
    };
    file("group", "t", 0640);
    file("world", "t", 0604);
    file("executable", "t", 0700);
    file("large", std::string(70'000, 't'), 0600);
    file("target", "t", 0600);
    fs::create_symlink(folder / "target", folder / "link");
    fs::create_symlink(folder / "nowhere", folder / "dangling");
    fs::create_directory(folder / "folder");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const std::pair<const char*, Case> rows[] = {
        {"group", Case::readableByOthers},      {"world", Case::readableByOthers},
        {"executable", Case::readableByOthers}, {"large", Case::tooLarge},
        {"link", Case::notRegularFile},         {"dangling", Case::notRegularFile},
        {"folder", Case::notRegularFile},       {"pipe", Case::notRegularFile},
        {"target/below", Case::unreadable},
    };
    for (const auto& [name, expected] : rows) {
        FileKeyring keyring(folder / name);
        try {
            static_cast<void>(keyring.retrieveToken());
            ADD_FAILURE() << name;
        } catch (const TokenFileError& error) {
            EXPECT_EQ(error.kind(), expected) << name;
            EXPECT_NE(error.errorDescription().find((folder / name).string()), std::string::npos);
        }
        if (expected == Case::tooLarge) continue; // a new token may take its place
        EXPECT_THROW(keyring.saveToken("new"), TokenFileError) << name;
        EXPECT_THROW(keyring.deleteToken(), TokenFileError) << name;
    }
    EXPECT_EQ(test::readFile(folder / "target"), "t");
}

TEST(FileKeyring, ReadsWhatAnEditorLeaves) {
    const TemporaryFolder folder;
    const std::pair<const char*, std::optional<std::string>> rows[] = {{"token\n", "token"},
                                                                       {"token\r\n", "token"},
                                                                       {"", std::nullopt},
                                                                       {"\n", std::nullopt},
                                                                       {"a b", "a b"}};
    for (const auto& [content, expected] : rows) {
        const fs::path path = folder.write("token", content);
        ::chmod(path.c_str(), 0400);
        FileKeyring keyring(path);
        EXPECT_EQ(keyring.retrieveToken(), expected) << content;
        keyring.saveToken("another");
        EXPECT_EQ(keyring.retrieveToken(), "another");
        keyring.deleteToken();
        EXPECT_NO_THROW(keyring.deleteToken());
    }
    const fs::path path = folder.write("token", "\xff\xfe");
    ::chmod(path.c_str(), 0600);
    EXPECT_THROW(static_cast<void>(FileKeyring(path).retrieveToken()), KeychainError);
}

} // namespace
} // namespace velto
