#include "cli/CliFixture.hpp"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace velto::test {

namespace fs = std::filesystem;

Arguments words(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

RunningProgram::RunningProgram(const Arguments& arguments)
    : program_(startPiped(arguments, STDERR_FILENO)) {
    fcntl(program_.output.get(), F_SETPIPE_SZ, 4096);
}

RunningProgram::~RunningProgram() {
    if (program_.process < 0) return;
    signal(SIGKILL);
    waitpid(program_.process, nullptr, 0);
}

bool RunningProgram::waitFor(const std::string& text) {
    std::size_t searched = standardError.size();
    std::array<char, 256> block{};
    while (standardError.find(text, searched - std::min(searched, text.size())) == std::string::npos) {
        searched = standardError.size();
        const ssize_t count = read(program_.output.get(), block.data(), block.size());
        if (count <= 0) return false;
        standardError.append(block.data(), static_cast<std::size_t>(count));
    }
    return true;
}

void RunningProgram::signal(int number) const {
    if (program_.process > 0) kill(program_.process, number);
}

int RunningProgram::finish() {
    std::array<char, 4096> block{};
    for (ssize_t count = 0; (count = read(program_.output.get(), block.data(), block.size())) > 0;)
        standardError.append(block.data(), static_cast<std::size_t>(count));
    return end();
}

int RunningProgram::end() {
    int status = 0;
    waitpid(program_.process, &status, 0);
    program_.process = -1;
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
    backend_.emplace(folder_ / "backend.sqlite", options, port_);
    port_ = backend_->port();
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

void Cli::makeMusic(int count) const {
    (void)runProgram({"/usr/bin/python3", SAMPLE_SCRIPT, music().string(), "--count", std::to_string(count),
                      "--seconds", "1"});
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
