#include "cli/CliFixture.hpp"

#include <fmt/format.h>

#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

TEST_F(Cli, RefusesWhatIsNotItsOwnAndLeavesItAsItIs) {
    const std::string garbage(5000, 'g');
    folder_.write("home/velto.store", garbage);
    folder_.write("file", "x");
    folder_.write("token", "secret");
    ASSERT_EQ(::chmod(tokenFile().c_str(), 0640), 0);
    const std::string secret = tokenFile().string();
    const std::pair<Arguments, const char*> cases[] = {
        {{"--home", home().string()}, "velto: Could not create ModelContainer: "},
        {{"--home", (folder_ / "file/below").string()}, "velto: Cannot make the folder"},
        {{"--home", (folder_ / "other").string(), "--token-file", secret}, "velto: The token file "},
    };
    for (const auto& [options, says] : cases) {
        Arguments all{VELTOCTL_PROGRAM, "library", "list"};
        all.insert(all.end(), options.begin(), options.end());
        const auto output = files::runProcess(all);
        EXPECT_EQ(output.status, 1) << says;
        EXPECT_THAT(output.standardError, testing::StartsWith(says));
    }
    EXPECT_EQ(readFile(home() / "velto.store"), garbage);
    EXPECT_EQ(readFile(tokenFile()), "secret");
}

TEST_F(Cli, WorksWithoutWhatOnlyAPartOfItNeeds) {
    prepare();
    backendAddress_.clear();
    fs::remove_all(home() / "defaults.json");
    folder_.write("home/defaults.json/in the way", "");
    folder_.write("home/local-backend.sqlite", std::string(5000, 'g'));
    EXPECT_EQ(json({"library", "list"}).size(), 1);
    const auto scan = run({"scan"});
    EXPECT_EQ(scan.status, 0) << scan.standardError;
    const std::string notThere = "velto: The local backend did not start: Could not use " +
                                 (home() / "local-backend.sqlite").string() +
                                 " as state: file is not a database\n";
    EXPECT_EQ(scan.standardError, notThere);
    const auto session = run({"whoami"});
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.standardError, notThere);
    EXPECT_EQ(readFile(home() / "local-backend.sqlite"), std::string(5000, 'g'));
    EXPECT_THAT(readFile(home() / "velto.log"), HasSubstr("velto-backend: Could not use "));

    // A store that opens but cannot be read is not an empty one.
    (void)runProgram({"/usr/bin/python3", "-c",
                      "import sqlite3, sys\nstore = sqlite3.connect(sys.argv[1])\n"
                      "size, = store.execute('PRAGMA page_size').fetchone()\n"
                      "page, = store.execute(\"SELECT rootpage FROM sqlite_master WHERE name = 'Track'\")"
                      ".fetchone()\nstore.execute('PRAGMA wal_checkpoint(TRUNCATE)')\nstore.close()\n"
                      "file = open(sys.argv[1], 'r+b')\nfile.seek((page - 1) * size)\n"
                      "file.write(b'\\xff' * size)",
                      (home() / "velto.store").string()});
    const auto list = run({"library", "list"});
    EXPECT_EQ(list.status, 1) << list.standardOutput;
    EXPECT_THAT(list.standardError, testing::StartsWith("velto: Failed to load libraries: "));
}

TEST_F(Cli, ShowsNamesWithoutObeyingThem) {
    startBackend();
    ASSERT_EQ(run({"sign-in", "velto://auth?token=" + backend_->signIn("dj@example.org")}).status, 0);
    fs::create_directory(folder_ / "odd\x1b[2J\xc2\x9b\nname");
    for (const Arguments& arguments :
         {Arguments{"library", "add", (folder_ / "odd\x1b[2J\xc2\x9b\nname").string()},
          Arguments{"library", "list"}, Arguments{"library", "remove", "odd\x1b[2J\xc2\x9b\nname"}}) {
        const auto output = run(arguments);
        EXPECT_EQ(output.status, 0) << output.standardError;
        EXPECT_THAT(output.standardOutput, HasSubstr("odd\\x1b[2J\\x9b\\nname"));
        EXPECT_THAT(output.standardOutput, Not(HasSubstr("\x1b")));
    }
}

TEST_F(Cli, SaysWhatIsWrongWithABackend) {
    prepare();
    fs::copy(tokenFile(), folder_ / "kept");
    const std::string before = readFile(music() / "song.mp3");

    struct Case {
        const char* backendOptions; ///< none: nothing listens there
        const char* address;        ///< null: the backend's
        const char* arguments;
        const char* says;
    };

    const char* odd = "ht!tp://%%%";
    const Case cases[] = {
        {"--fault unauthorized", nullptr, "tag --yes",
         "1 of 1 track not tagged: the session has ended, sign in again: veltoctl sign-in\n"},
        {"--fault drop", nullptr, "tag --yes",
         "not tagged: Network error: The network connection was lost.\n"},
        {"--fault unauthorized --fault-on all", nullptr, "library add /tmp",
         "velto: not signed in: the session has ended, sign in again: veltoctl sign-in\n"},
        {"--fault server-error --fault-on all", nullptr, "whoami",
         "velto: not signed in: Invalid response from server\n"},
        {"", nullptr, "tag --yes", "velto: not signed in: The server could not be reached.\n"},
        {"", odd, "sign-in", "Invalid authentication URL\n"},
        {"", odd, "billing", "Invalid billing URL\n"},
        {"", odd, "sign-in velto://auth?token=abc", "Invalid API endpoint URL\n"},
        {"--fault partial@1", nullptr, "sign-in velto://auth?token=unknown", "Unauthorized"},
    };
    for (const auto& [options, address, arguments, says] : cases) {
        backend_.reset();
        if (*options != '\0') startBackend(words(options));
        if (address != nullptr) backendAddress_ = address;
        fs::copy(folder_ / "kept", tokenFile(), fs::copy_options::overwrite_existing);
        const auto output = run(words(arguments));
        EXPECT_EQ(output.status, 1) << says;
        EXPECT_THAT(output.standardError, HasSubstr(says));
        EXPECT_EQ(readFile(music() / "song.mp3"), before);
    }
}

TEST_F(Cli, SaysWhatIsWrongWithAFolder) {
    prepare();
    fs::create_directory(folder_ / "gone");
    ASSERT_EQ(run({"library", "add", (folder_ / "gone").string()}).status, 0);
    fs::remove(folder_ / "gone");
    const std::string away =
        fmt::format("the folder {} is not there: connect its drive; or say where it is now: "
                    "veltoctl library relocate 'gone' FOLDER",
                    (folder_ / "gone").string());
    const std::string song = music() / "song.mp3", nowhere = folder_ / "nowhere";
    const std::pair<std::string, std::string> cases[] = {
        {"library add --name Music " + music().string(),
         "there is a library 'Music' already: scan it, or give this one another name with --name"},
        {"library add " + song, song + " is not a folder"},
        {"library add " + nowhere, nowhere + " is not a folder"},
        {"tag Nope", "there is no library 'Nope', there is 'gone', 'Music'"},
        {"scan gone", away},
        {"check gone", away},
    };
    for (const auto& [arguments, says] : cases) {
        const auto output = run(words(arguments));
        EXPECT_EQ(output.status, 1) << says;
        EXPECT_EQ(output.standardOutput, "");
        EXPECT_EQ(output.standardError, "velto: " + says + "\n");
    }
    EXPECT_EQ(json({"library", "remove", "gone"}).at("name"), "gone");
    fs::remove(music() / "song.mp3");
    const auto cleared = run({"clear-tags", "--yes"});
    EXPECT_EQ(cleared.status, 0);
    EXPECT_EQ(cleared.standardError, "velto: the genre could not be cleared from 1 file; why is in " +
                                         (home() / "velto.log").string() + "\n");
}

TEST_F(Cli, AsksBeforeMostFilesAreMissingAndTakesThemBack) {
    prepare();
    const auto songs = music() / "many", aside = folder_ / "aside";
    fs::rename(manySongs(20), songs);
    ASSERT_EQ(json({"scan"}).at("newCount"), 20);
    fs::rename(songs, aside);
    const std::string question =
        "Most files of the library were not found: 20 of 21 files. Mark them as missing? "
        "[y/N]";
    for (const char* answer : {"", "n\n"}) {
        const auto refused = run({"scan"}, answer);
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.standardError, HasSubstr(question));
        EXPECT_THAT(refused.standardError, HasSubstr("veltoctl scan --accept-missing"));
    }
    EXPECT_EQ(json({"tracks"}).at(0).at("status"), "ready");
    EXPECT_EQ(run({"scan"}, "y\n").status, 0);
    EXPECT_EQ(json({"tracks"}).at(0).at("status"), "error");
    fs::rename(aside, songs);
    folder_.write("music/damaged.mp3", "no song");
    EXPECT_EQ(json({"check"}).at("scanRun").at("missingCount"), 0);
    EXPECT_EQ(json({"tracks"}).at(0).at("status"), "ready");
    EXPECT_EQ(json({"check"}).at("newFiles"), 0);
    const auto errors = json({"tracks", "--errors"});
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.at(0).at("path"), (music() / "damaged.mp3").string());
    fs::rename(music(), folder_ / "elsewhere");
    EXPECT_EQ(run({"check"}).status, 1);
    fs::create_directory(music());
    EXPECT_EQ(run({"library", "relocate", "Music", music().string()}).standardError,
              "velto: " + music().string() + " has none of the files of 'Music'\n");
    const auto moved = json({"library", "relocate", "Music", (folder_ / "elsewhere").string()});
    EXPECT_EQ(moved.at("rootPath"), (folder_ / "elsewhere").string());
    EXPECT_EQ(json({"check"}).at("newFiles"), 0);
    EXPECT_EQ(json({"scan"}).at("changedCount"), 0);

    fs::remove_all(folder_ / "elsewhere/many");
    EXPECT_EQ(json({"scan", "--accept-missing"}).at("missingCount"), 20);
    EXPECT_EQ(run({"forget-missing"}, "n\n").status, 130);
    EXPECT_EQ(json({"forget-missing", "--yes"}).at("forgotten"), 20);
    EXPECT_EQ(json({"scan"}).at("missingCount"), 0);
}

TEST_F(Cli, ScansAndTagsWhatItCanOfAFolderOfOddFiles) {
    const std::string song = sample("song.mp3");
    const std::string names[] = {"good.mp3", "broken \xff\xfe.mp3", "new\nline.mp3"};
    for (const auto& name : names)
        folder_.write("music/" + name, song);
    // A tag that declares 256 MB, in a file of some KB; one of its frames does so too.
    folder_.write("music/declares.mp3",
                  std::string("ID3\3\0\0\x7f\x7f\x7f\x7fTIT2\x0f\xff\xff\xff\0\0", 20) + song);
    const std::vector<fs::path> useless{folder_.write("music/empty.mp3", ""),
                                        folder_.write("music/empty.wav", ""),
                                        folder_.write("music/cut.m4a", sample("song.m4a").substr(0, 3000)),
                                        folder_.write("music/cut.aiff", sample("song.aiff").substr(0, 40))};
    prepare();
    const auto scan = json({"scan"});
    EXPECT_GE(scan.at("errorCount"), useless.size());
    EXPECT_EQ(json({"tag", "--yes"}).at("refused"), nlohmann::json::array());
    EXPECT_EQ(json({"tracks"}).at(0).at("files").size(), 3); // also the one whose name is not UTF-8
    for (const auto& name : names)
        EXPECT_NE(genreIn(music() / name), "") << name;
    EXPECT_EQ(fs::file_size(useless[0]) + fs::file_size(useless[1]), 0);
    EXPECT_EQ(fs::file_size(useless[2]), 3000);
}

TEST_F(Cli, MakesFilesWholeAtItsStartThatAKilledWriteLeft) {
    prepare();
    const auto song = music() / "song.mp3";
    fs::copy_file(song, music() / ".song.mp3.backup");
    std::ofstream(song, std::ios::binary) << sample("song.mp3").substr(0, 3000);
    std::ofstream(home() / "rewrites.journal", std::ios::binary) << '+' << song.string() << '\0';
    ASSERT_EQ(run({"library", "list"}).status, 0);
    EXPECT_EQ(readFile(song), sample("song.mp3"));
    EXPECT_FALSE(fs::exists(music() / ".song.mp3.backup"));
}

} // namespace
} // namespace velto::test
