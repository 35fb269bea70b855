#include "cli/CliFixture.hpp"

#include <regex>

namespace velto::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsSupersetOf;

using Words = std::vector<std::string>;

/// What a command's own help says that it takes: the source that scripts and manual are compared with.
struct Help {
    Words commands;
    Words options;
};

Help helpOf(Arguments command) {
    command.insert(command.begin(), VELTOCTL_PROGRAM);
    command.emplace_back("--help");
    Help help;
    std::istringstream lines(files::runProcess(command).standardOutput);
    bool isBelow = false;
    const std::regex names("^  (-[a-z]),?(--[a-z-]+)?|^  (--[a-z-]+)|^  ([a-z-]+)");
    for (std::string line; std::getline(lines, line);) {
        isBelow = isBelow || line.starts_with("Subcommands:");
        std::smatch found;
        if (!std::regex_search(line, found, names)) continue;
        for (std::size_t group = 1; group <= 3; ++group)
            if (found[group].matched) help.options.push_back(found[group]);
        if (isBelow && found[4].matched) help.commands.push_back(found[4]);
    }
    return help;
}

std::string printed(const Arguments& command) {
    Arguments all{VELTOCTL_PROGRAM};
    all.insert(all.end(), command.begin(), command.end());
    const auto output = files::runProcess(all);
    EXPECT_EQ(output.status, 0) << output.standardError;
    return output.standardOutput;
}

/// What bash offers for the last word of a line.
Words offered(Words line) {
    Arguments all{"/bin/bash", "-c",
                  "source /dev/stdin <<<\"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _veltoctl\n"
                  "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"",
                  printed({"completion", "bash"}), VELTOCTL_PROGRAM};
    all.insert(all.end(), line.begin(), line.end());
    const auto output = files::runProcess(all);
    EXPECT_EQ(output.standardError, "");
    Words words;
    std::istringstream lines(output.standardOutput);
    for (std::string word; std::getline(lines, word);)
        words.push_back(word);
    return words;
}

Words with(Words words, const std::string& last) {
    words.push_back(last);
    return words;
}

TEST(Shell, OffersAndTheManualExplainsEveryCommandAndOption) {
    const std::string zsh = printed({"completion", "zsh"});
    const std::string fish = printed({"completion", "fish"});
    const std::string manual = std::regex_replace(printed({"manual"}), std::regex(R"(\\-)"), "-");
    std::vector<Words> commands{{}};
    std::size_t options = 0;
    for (std::size_t i = 0; i < commands.size(); ++i) {
        const Words command = commands[i];
        const Help help = helpOf(command);
        options += help.options.size();
        if (!help.commands.empty()) {
            EXPECT_EQ(offered(with(command, "")), help.commands);
        }
        EXPECT_THAT(offered(with(command, "-")), IsSupersetOf(help.options));
        for (const auto& option : help.options) {
            const bool isLong = option.starts_with("--");
            EXPECT_THAT(zsh, HasSubstr(option));
            EXPECT_THAT(fish, HasSubstr(isLong ? " -l " + option.substr(2) : " -s " + option.substr(1)));
            EXPECT_THAT(manual, HasSubstr("\\fB" + option + "\\fR"));
        }
        for (const auto& name : help.commands) {
            commands.push_back(with(command, name));
            EXPECT_THAT(zsh, HasSubstr("'" + name + ":"));
            EXPECT_THAT(fish, HasSubstr(" -a " + name + " -d "));
            EXPECT_THAT(manual,
                        testing::ContainsRegex("\\.S[SH] \"?(library )?" + name + "|" + name + " add"));
        }
    }
    EXPECT_GE(commands.size(), 14);
    EXPECT_GE(options, 25);
    EXPECT_EQ(offered({"--home", "/tmp", "--token-file", "=", "x", "library", "rem"}), Words{"remove"});
    EXPECT_EQ(offered({"--backend", ""}), Words{});

    for (const auto& [shell, script] : {std::pair{"/usr/bin/zsh", zsh}, {"/usr/bin/fish", fish}})
        if (fs::exists(shell)) {
            TemporaryFolder folder;
            const auto checked = files::runProcess({shell, "-n", folder.write("script", script).string()});
            EXPECT_EQ(std::to_string(checked.status) + checked.standardError, "0") << shell;
        }
}

TEST_F(Cli, OffersTheNamesOfLibrariesBesideARunningCommand) {
    prepare();
    for (const char* name : {"My House", "a\nb"})
        ASSERT_EQ(run({"library", "add", music().string(), "--no-scan", "--name", name}).status, 0);
    const RunningProgram running(command({"sign-in"})); // holds the store
    const Words front{"--home", home().string()};
    const auto at = [&](const Words& line) {
        Words all = front;
        all.insert(all.end(), line.begin(), line.end());
        return offered(all);
    };
    EXPECT_EQ(at({"scan", ""}), (Words{"Music", "My\\ House"}));
    EXPECT_EQ(at({"library", "remove", "My\\ H"}), Words{"My\\ House"});
    EXPECT_EQ(at({"tag", "\"My H"}), Words{"My House"});
    EXPECT_EQ(offered({"--home", (folder_ / "nowhere").string(), "scan", ""}), Words{});
    EXPECT_FALSE(fs::exists(folder_ / "nowhere"));
}

} // namespace
} // namespace velto::test
