#include "cli/CliFixture.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace velto::test {

namespace fs = std::filesystem;

RunningProgram::RunningProgram(const Arguments& arguments) {
    std::array<int, 2> input{}, error{};
    if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(error.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    input_ = files::Descriptor(input[1]);
    error_ = files::Descriptor(error[0]);
    fcntl(error[0], F_SETPIPE_SZ, 4096);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    const int failure = posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(error[1]);
    if (failure != 0) throw std::runtime_error("cannot start " + arguments.front());
}

RunningProgram::~RunningProgram() {
    if (process_ < 0) return;
    signal(SIGKILL);
    waitpid(process_, nullptr, 0);
}

bool RunningProgram::waitFor(const std::string& text) {
    std::size_t searched = standardError.size();
    std::array<char, 256> block{};
    while (standardError.find(text, searched - std::min(searched, text.size())) == std::string::npos) {
        searched = standardError.size();
        const ssize_t count = read(error_.get(), block.data(), block.size());
        if (count <= 0) return false;
        standardError.append(block.data(), static_cast<std::size_t>(count));
    }
    return true;
}

void RunningProgram::signal(int number) const {
    if (process_ > 0) kill(process_, number);
}

std::vector<pid_t> RunningProgram::children() const {
    std::vector<pid_t> found;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(process_) + "/task")) {
        std::ifstream list(task.path() / "children");
        for (pid_t child = 0; list >> child;)
            found.push_back(child);
    }
    return found;
}

int RunningProgram::finish() {
    std::array<char, 4096> block{};
    for (ssize_t count = 0; (count = read(error_.get(), block.data(), block.size())) > 0;)
        standardError.append(block.data(), static_cast<std::size_t>(count));
    return end();
}

int RunningProgram::end() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::optional<TemporaryFolder> Cli::samples_;

void Cli::SetUpTestSuite() {
    ::setenv("MALLOC_PERTURB_", "165", 1); // a child that uses freed memory is found out
    samples_.emplace();
    for (const char* name : {"song.mp3", "song.m4a", "song.aiff"})
        (void)runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "anoisesrc=d=1:a=0.3", "-metadata",
                          "artist=Artist", "-metadata", std::string("title=") + name, "-write_id3v2", "1",
                          (*samples_ / name).string()});
}

void Cli::TearDownTestSuite() {
    samples_.reset();
}

Arguments Cli::command(const Arguments& arguments) const {
    Arguments all{VELTOCTL_PROGRAM, "--home", home().string(), "--token-file", tokenFile().string()};
    if (!backendAddress_.empty()) all.insert(all.end(), {"--backend", backendAddress_});
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

ProcessOutput Cli::run(const Arguments& arguments, const std::string& input) const {
    Arguments all = command(arguments);
    all.emplace_back("--quiet");
    if (!input.empty()) all.insert(all.begin(), {"/bin/sh", "-c", R"(printf %s "$0" | "$@")", input});
    return files::runProcess(all);
}

nlohmann::json Cli::json(Arguments arguments) const {
    arguments.emplace_back("--json");
    const auto output = run(arguments);
    EXPECT_EQ(output.status, 0) << arguments.front() << ": " << output.standardError;
    EXPECT_EQ(output.standardError, "") << arguments.front();
    return nlohmann::json::parse(output.standardOutput);
}

void Cli::startBackend(const Arguments& options) {
    backend_.reset();
    backend_.emplace(folder_ / "backend.sqlite", options);
    backendAddress_ = "http://127.0.0.1:" + std::to_string(backend_->port());
}

void Cli::prepare(const Arguments& backendOptions) {
    startBackend(backendOptions);
    token_ = backend_->signIn("dj@example.org");
    ASSERT_EQ(run({"sign-in", "velto://auth?token=" + token_}).status, 0);
    if (!fs::exists(music())) addSong("song.mp3", "song.mp3");
    ASSERT_EQ(run({"library", "add", music().string(), "--name", "Music"}).status, 0);
}

fs::path Cli::addSong(const std::string& sample, const std::string& name) const {
    fs::create_directories((music() / name).parent_path());
    fs::copy_file(*samples_ / sample, music() / name);
    return music() / name;
}

fs::path Cli::manySongs(int count) const {
    const auto many = folder_ / "many";
    fs::create_directory(many);
    fs::copy_file(*samples_ / "song.mp3", many / "0.mp3");
    for (int i = 1; i < count; ++i)
        fs::create_hard_link(many / "0.mp3", many / (std::to_string(i) + ".mp3"));
    return many;
}

std::string Cli::sample(const std::string& name) {
    return readFile(*samples_ / name);
}

std::string genreIn(const fs::path& file) {
    return runProgram({"/usr/bin/python3", "-c",
                       "import sys, mutagen\n"
                       "tags = mutagen.File(sys.argv[1]).tags or {}\n"
                       "found = tags.get('TCON') or tags.get('\\xa9gen') or ''\n"
                       "print(found[0] if isinstance(found, list) else found, end='')",
                       file.string()});
}

std::string audioIn(const fs::path& file) {
    return runProgram(
        {"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:a", "-c", "copy", "-f", "md5", "-"});
}

} // namespace velto::test
