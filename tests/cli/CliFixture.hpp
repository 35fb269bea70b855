#pragma once

#include "platform/files/ChildProcess.hpp"
#include "support/PipedProgram.hpp"
#include "support/TemporaryFolder.hpp"
#include "tools/BackendProcess.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velto::test {

using Arguments = std::vector<std::string>;
using files::ProcessOutput;

/// What stands between the blanks.
[[nodiscard]] Arguments words(const std::string& line);

/// veltoctl as a child process, watched through its standard error and steered by signals and its standard
/// input.
class RunningProgram {
  public:
    explicit RunningProgram(const Arguments& arguments);
    /// Kills it if it still runs.
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// Reads standard error up to this text, no further. False if the child ends without saying it.
    bool waitFor(const std::string& text);
    void signal(int number) const;
    /// Reads to the end; the exit status, or 128 + the signal.
    int finish();
    /// The same without reading.
    int end();

    [[nodiscard]] pid_t process() const { return program_.process; }

    /// All of standard error so far.
    std::string standardError;

  private:
    PipedProgram program_;
};

/// A home, a token file, a folder of music and, once a test has started one, a backend.
class Cli : public testing::Test {
  protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    /// The command line of veltoctl on this test's home, token file and backend.
    [[nodiscard]] Arguments command(const Arguments& arguments) const;
    /// Runs it with --quiet; standard input is empty, or `input`.
    [[nodiscard]] ProcessOutput run(const Arguments& arguments, const std::string& input = "") const;
    /// The same with --json and exit code 0; what it printed.
    [[nodiscard]] nlohmann::json json(Arguments arguments) const;

    void startBackend(const Arguments& options = {});
    /// Starts a backend, signs in and makes `music` a library named "Music", scanned.
    void prepare(const Arguments& backendOptions = {});

    [[nodiscard]] std::filesystem::path home() const { return folder_ / "home"; }

    [[nodiscard]] std::filesystem::path tokenFile() const { return folder_ / "token"; }

    [[nodiscard]] std::filesystem::path music() const { return folder_ / "music"; }

    /// Copies a sample ("song.mp3", "song.m4a", "song.aiff") below `music`.
    std::filesystem::path addSong(const std::string& sample, const std::string& name) const;
    /// Makes this many files of sample music, each a song of its own but for a few, in `music`.
    void makeMusic(int count) const;
    /// `count` more names for the sample MP3, in a folder of their own.
    [[nodiscard]] std::filesystem::path manySongs(int count) const;
    [[nodiscard]] static std::string sample(const std::string& name);

    TemporaryFolder folder_;
    std::optional<BackendProcess> backend_;
    std::string backendAddress_;
    std::string token_;

  private:
    static std::optional<TemporaryFolder> samples_;
    int port_ = 0; ///< a backend that is started again is the same one to the program: it keeps its port
};

/// The genre that an independent reader finds in a file; empty for none.
[[nodiscard]] std::string genreIn(const std::filesystem::path& file);
/// What must not change: a digest of the encoded audio, by an independent reader.
[[nodiscard]] std::string audioIn(const std::filesystem::path& file);

} // namespace velto::test
