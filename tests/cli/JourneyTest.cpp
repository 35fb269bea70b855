#include "cli/CliFixture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <utility>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

using Keys = std::set<std::string>;

Keys keysOf(const json& object) {
    Keys keys;
    for (const auto& [key, value] : object.items())
        keys.insert(key);
    return keys;
}

TEST_F(Cli, DistinguishesWrongUsageFromAFailureAndFromHelp) {
    struct Case {
        Arguments arguments;
        int status;
        const char* says;
    };

    const Case cases[] = {
        {{"--help"}, 0, ""},
        {{"--version"}, 0, ""},
        {{}, 2, "subcommand"},
        {{"frobnicate"}, 2, "there is no command 'frobnicate'"},
        {{"library"}, 2, "subcommand"},
        {{"library", "add"}, 2, "PATH"},
        {{"library", "add", ""}, 2, "PATH"},
        {{"scan", "one", "two"}, 2, "two"},
        {{"tracks", "--limit", "-1"}, 2, "--limit"},
        {{"--home", "", "whoami"}, 2, "--home"},
        {{"library", "list"}, 0, ""},
        {{"--quiet", "--verbose", "whoami"}, 2, "--quiet"},
        {{"scan"}, 1, "velto: there is no library yet, add one: veltoctl library add FOLDER\n"},
        {{"tracks", "Nope"}, 1, "velto: there is no library yet"},
        {{"whoami"}, 1, "velto: sign in first: veltoctl sign-in\n"},
        {{"tag"}, 1, "velto: there is no library yet"},
        {{"library", "add", "/tmp"}, 1, "velto: sign in first: veltoctl sign-in\n"},
        {{"sign-in", "https://auth?token=a"}, 1, "velto: this is not the link"},
        {{"sign-in"}, 130, "velto: cancelled\n"},
    };
    for (const auto& [arguments, status, says] : cases) {
        const auto output = run(arguments);
        EXPECT_EQ(output.status, status) << testing::PrintToString(arguments) << output.standardError;
        EXPECT_THAT(output.standardError, HasSubstr(says));
        if (status < 2) { // a person who cancels was shown the sign-in page before
            EXPECT_EQ(std::count(output.standardError.begin(), output.standardError.end(), '\n'), status);
        }
        EXPECT_EQ(status == 0, !output.standardOutput.empty()) << testing::PrintToString(arguments);
    }
}

TEST_F(Cli, FailsIfItsOutputCannotBeWritten) {
    Arguments all{"/bin/sh", "-c", R"("$0" "$@" >/dev/full)"};
    for (const auto& word : command({"--quiet", "--json", "library", "list"}))
        all.push_back(word);
    const auto output = files::runProcess(all);
    EXPECT_EQ(output.status, 1);
    EXPECT_EQ(output.standardError, "velto: Cannot write standard output: No space left on device\n");
}

TEST_F(Cli, TagsAFolderOfMusicAndClearsItAgain) {
    const auto mp3 = addSong("song.mp3", "a.mp3");
    const auto m4a = addSong("song.m4a", "sub/b.m4a");
    const auto aiff = addSong("song.aiff", "c.aiff");
    const std::string audio = audioIn(mp3) + audioIn(m4a) + audioIn(aiff);
    startBackend();
    token_ = backend_->signIn("dj@example.org");
    EXPECT_EQ(json({"sign-in", "velto://auth?token=" + token_}),
              nlohmann::json::parse(R"({"isSignedIn": true, "email": "dj@example.org", "name": null,
                                        "creditBalance": {"used": 0, "total": 1000}})"));
    const auto added = json({"library", "add", music().string(), "--no-scan"});
    EXPECT_EQ(added.at("name"), "music");
    EXPECT_EQ(added.at("scanRun"), nullptr);
    EXPECT_EQ(keysOf(json({"library", "list"}).at(0)),
              (Keys{"name", "rootPath", "includeGlob", "excludeGlob", "isEnabled", "lastScanStartedAt",
                    "lastScanFinishedAt", "lastSyncedAt", "trackCountText", "lastImportText"}));

    EXPECT_EQ(json({"check"}).at("newFiles"), 3);
    EXPECT_EQ(json({"check"}), nlohmann::json::parse(R"({"newFiles": 0, "scanRun": null})"));
    const auto scan = json({"scan", "music"});
    EXPECT_EQ(keysOf(scan), (Keys{"startedAt", "finishedAt", "totalSeen", "newCount", "changedCount",
                                  "missingCount", "errorCount", "notes", "library"}));
    EXPECT_EQ(scan.at("totalSeen"), 3);
    const auto tracks = json({"tracks"});
    ASSERT_EQ(tracks.size(), 3);
    EXPECT_EQ(keysOf(tracks.at(0)),
              (Keys{"artist", "title", "album", "trackNumber", "genre", "bpm", "durationSec", "year",
                    "canonicalSig", "lastTagged", "lastSyncedAt", "createdAt", "genres", "regions", "era",
                    "status", "needsSync", "files"}));
    EXPECT_EQ(keysOf(tracks.at(0).at("files").at(0)),
              (Keys{"absPath", "relPath", "status", "quickSig", "errorMsg"}));
    EXPECT_EQ(json({"tracks", "--limit", "1"}).size(), 1);

    const auto tagged = json({"tag", "--yes"});
    EXPECT_EQ(tagged, nlohmann::json::parse(R"({"requested": 3, "tagged": 3, "credits": 3, "refused": []})"));
    for (const auto& track : json({"tracks"})) {
        const std::string genre = track.at("genre");
        EXPECT_NE(genre, "");
        EXPECT_EQ(genreIn(track.at("files").at(0).at("absPath").get<std::string>()), genre);
    }
    EXPECT_EQ(json({"whoami"}).at("creditBalance").at("total"), 997);
    EXPECT_EQ(run({"billing"}).standardError,
              "Open this page in your browser:\n  " + backendAddress_ + "/dashboard/billing\n");

    EXPECT_EQ(json({"clear-tags", "--yes"}), nlohmann::json::parse(R"({"cleared": 3})"));
    EXPECT_EQ(genreIn(mp3) + genreIn(m4a) + genreIn(aiff), "");
    EXPECT_EQ(json({"tracks"}).at(0).at("lastTagged"), nullptr);
    EXPECT_EQ(json({"mark-tagged"}), nlohmann::json::parse(R"({"marked": 3})"));
    EXPECT_NE(json({"tracks"}).at(0).at("lastTagged"), nullptr);
    EXPECT_EQ(audioIn(mp3) + audioIn(m4a) + audioIn(aiff), audio);

    EXPECT_EQ(json({"library", "remove", "music"}), nlohmann::json::parse(R"({"name": "music"})"));
    EXPECT_EQ(json({"library", "list"}), json::array());
    EXPECT_EQ(json({"sign-out"}).at("isSignedIn"), false);
    EXPECT_FALSE(fs::exists(tokenFile()));
    const auto signedOut = run({"whoami", "--json"});
    EXPECT_EQ(signedOut.status, 1);
    EXPECT_EQ(json::parse(signedOut.standardOutput).at("isSignedIn"), false);
}

TEST_F(Cli, AsksBeforeItSpendsCreditsOrClears) {
    prepare();
    const std::string before = readFile(music() / "song.mp3");

    struct Case {
        const char* command;
        const char* answer;
        int status;
        const char* question;
    };

    const char* tag = "This will tag 1 track for 1 credit of your 1000, 999 remain. Continue? [y/N]";
    const Case cases[] = {{"tag", "n\n", 130, tag},
                          {"tag", "", 130, tag},
                          {"clear-tags", "\n", 130, "This will clear the tags of 1 track. Continue? [y/N]"},
                          {"tag", " Yes\n", 0, tag}};
    for (const auto& [name, answer, status, question] : cases) {
        EXPECT_EQ(readFile(music() / "song.mp3"), before);
        const auto output = run({name}, answer);
        EXPECT_EQ(output.status, status) << name;
        EXPECT_THAT(output.standardError, HasSubstr(question));
    }
    EXPECT_NE(genreIn(music() / "song.mp3"), "");
    EXPECT_EQ(backend_->credits(token_), 999);
}

TEST_F(Cli, TagsWhatHasNoTagsYetAndSaysWhatIsLeftUntagged) {
    makeMusic(30); // 27 songs: some have two files
    startBackend({"--credits", "15"});
    addSong("song.mp3", "nobody.mp3");
    (void)runProgram({"/usr/bin/python3", "-c",
                      "import sys, mutagen.id3\ntags = mutagen.id3.ID3(sys.argv[1])\n"
                      "tags.delall('TPE1')\ntags.save()",
                      (music() / "nobody.mp3").string()});
    token_ = backend_->signIn("dj@example.org");
    ASSERT_EQ(run({"sign-in", "velto://auth?token=" + token_}).status, 0);
    ASSERT_EQ(run({"library", "add", music().string()}).status, 0);
    const auto requested = [&](const Arguments& more) {
        Arguments all{"tag", "--yes"};
        all.insert(all.end(), more.begin(), more.end());
        const auto summary = json(all);
        EXPECT_EQ(summary.at("tagged"), summary.at("requested"));
        return summary.at("requested").get<int>();
    };
    EXPECT_EQ(requested({"--limit", "2"}), 2);
    EXPECT_EQ(requested({"--limit", "1"}), 1);
    EXPECT_EQ(backend_->credits(token_), 12);
    EXPECT_THAT(
        run({"tag"}).standardError,
        HasSubstr("This will tag 24 tracks for 24 credits of your 12; that is not enough for all of them "
                  "(veltoctl billing). Left out: 3 tagged already (--again), 1 without artist or "
                  "title. Continue?"));
    const auto all = run({"tag", "--yes", "--json"});
    EXPECT_EQ(all.status, 1);
    EXPECT_THAT(all.standardError, testing::EndsWith("velto: 14 of 24 tracks not tagged: not enough "
                                                     "credits, buy some: veltoctl billing\n"));
    const auto summary = json::parse(all.standardOutput);
    EXPECT_EQ(summary.at("requested"), 24);
    EXPECT_EQ(summary.at("tagged"), 10);
    EXPECT_EQ(summary.at("credits"), 10);
    EXPECT_EQ(summary.at("refused").at(0).at("tracks"), 10);
    EXPECT_THAT(summary.at("refused").at(0).at("reason").get<std::string>(),
                testing::StartsWith("Insufficient credits. You need 10"));
    EXPECT_EQ(requested({"--failed", "--limit", "1"}), 1);
    EXPECT_EQ(requested({"--again", "--limit", "1"}), 1);
    EXPECT_EQ(run({"tag", "--failed"}).standardOutput,
              "Nothing to tag: 27 not left over from the last run, 1 without artist or title.\n");
    EXPECT_EQ(run({"tag", "--limit", "0"}).standardOutput,
              "Nothing to tag: 14 tagged already (--again), 1 without artist or title, 13 over the limit.\n");
}

TEST_F(Cli, KeepsWhatIsItsOwnPrivateAndBelowItsHome) {
    addSong("song.mp3", "song.mp3");
    startBackend();
    token_ = backend_->signIn("dj@example.org");
    const auto signIn = files::runProcess(command({"--verbose", "sign-in", "velto://auth?token=" + token_}));
    EXPECT_THAT(signIn.standardError, HasSubstr("[URL CALLBACK] Token extracted: " + token_.substr(0, 20)));
    ASSERT_EQ(run({"library", "add", music().string()}).status, 0);
    ASSERT_EQ(run({"tag", "--yes"}).status, 0);

    const std::string tooMuch = token_.substr(0, 21);
    EXPECT_THAT(signIn.standardError, Not(HasSubstr(tooMuch)));
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(home())) {
        names.insert(entry.path().filename().string());
        EXPECT_EQ(entry.status().permissions(), entry.is_directory() ? fs::perms(0700) : fs::perms(0600))
            << entry.path();
        if (!entry.is_regular_file()) continue;
        EXPECT_THAT(readFile(entry.path()), Not(HasSubstr(tooMuch))) << entry.path();
    }
    EXPECT_THAT(readFile(home() / "velto.log"), testing::ContainsRegex("\n20[-0-9]*T[0-9:.]*Z [^\n]"));
    EXPECT_THAT(names, testing::IsSupersetOf({"velto.store", "defaults.json", "velto.log"}));
    EXPECT_EQ(fs::status(home()).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(tokenFile()).permissions(), fs::perms(0600));
}

TEST_F(Cli, TakesHomeAndBackendFromTheEnvironment) {
    prepare();
    const auto whoAmI = [&](const Arguments& environment) {
        Arguments all{"/usr/bin/env", "-u", "XDG_DATA_HOME", "-u", "XDG_CONFIG_HOME", "-u", "XDG_STATE_HOME"};
        all.insert(all.end(), environment.begin(), environment.end());
        all.insert(all.end(), {VELTOCTL_PROGRAM, "--quiet", "--token-file", tokenFile().string(), "whoami"});
        return files::runProcess(all);
    };
    const auto elsewhere = folder_ / "elsewhere";
    const auto output =
        whoAmI({"VELTO_HOME=" + elsewhere.string(), "VELTO_BACKEND_URL=" + backendAddress_ + "/"});
    EXPECT_EQ(output.standardOutput, "dj@example.org, 1000 credits left\n") << output.standardError;
    EXPECT_TRUE(fs::exists(elsewhere / "velto.store"));

    const auto user = folder_ / "user";
    EXPECT_EQ(whoAmI({"HOME=" + user.string(), "VELTO_BACKEND_URL=" + backendAddress_}).status, 0);
    EXPECT_TRUE(fs::exists(user / ".local/share/velto/velto.store"));
    EXPECT_TRUE(fs::exists(user / ".local/state/velto/velto.log"));
}

TEST_F(Cli, KeepsTheTokenInARealKeyring) {
    startBackend();
    const auto call =
        fmt::format("{} --quiet --home {} --backend {}", VELTOCTL_PROGRAM, home().string(), backendAddress_);
    const auto output = files::runProcess(
        {WITH_KEYRING, "unlocked", "/bin/sh", "-c",
         fmt::format("{0} whoami; {0} sign-in '{1}' && {0} whoami && {0} sign-out && {0} whoami", call,
                     "velto://auth?token=" + backend_->signIn("ring@example.org"))});
    const std::string known = "ring@example.org, 1000 credits left\n";
    EXPECT_EQ(output.standardOutput, known + known + "Signed out.\n");
    EXPECT_THAT(output.standardError,
                testing::EndsWith("velto: sign in first: veltoctl sign-in\n"
                                  "velto: sign in first: veltoctl sign-in\n")); // after the bus's
    EXPECT_EQ(output.status, 1);
}

TEST_F(Cli, DrawsItsProgressOnATerminalAndTheLogsLinesOnlyIfAsked) {
    for (int i = 0; i < 60; ++i)
        addSong("song.mp3", fmt::format("{}.mp3", i));
    prepare();
    const std::regex progress(R"([A-Z][A-Za-z ]+\.\.\.( \d+ of \d+ \(\d+%\)(, [^\r]* left)?)?\r\x1b\[K)");
    const std::string result = "Scanned Music: 60 files, 0 new, 0 changed, 0 missing, 0 with errors.\r\n";
    for (const bool verbose : {false, true}) {
        std::string line;
        for (const auto& word : command({"scan"}))
            line += word + " ";
        if (verbose) line += "--verbose";
        // `script` gives the program a terminal.
        const std::string shown = runProgram({"script", "-qec", line, "/dev/null"});
        const std::string rest = std::regex_replace(shown, progress, "");
        EXPECT_NE(rest, shown);
        EXPECT_THAT(rest, Not(HasSubstr("\x1b")));
        EXPECT_THAT(rest, Not(HasSubstr("%)")));
        if (!verbose) {
            EXPECT_EQ(rest, result);
        }
        EXPECT_THAT(rest, HasSubstr((verbose ? "\r\n" : "") + result));
    }
}

} // namespace
} // namespace velto::test
