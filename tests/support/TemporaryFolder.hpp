#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velto::test {

/// A folder of the test's own, removed with everything in it (read-only entries too) when it goes.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

    /// Writes a file below the folder, making its folders; its path.
    std::filesystem::path write(std::string_view relativePath, std::string_view content) const;

  private:
    std::filesystem::path path_;
};

/// The whole content of a file; throws if it cannot be read.
[[nodiscard]] std::string readFile(const std::filesystem::path& path);

/// Runs a program with its arguments (no shell), e.g. ffmpeg or a mutagen script; standard output, and the
/// exit status in `status` if given (otherwise a status other than 0 throws with standard error).
std::string runProgram(std::vector<std::string> arguments, int* status = nullptr);

} // namespace velto::test
