#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The program's log: plain lines with an emoji and a bracketed tag. A line costs its caller an append to a
/// buffer and never waits: a thread of the log hands blocks of lines to the sinks. While a sink hangs, up to
/// 16 MiB are kept; what comes after that is dropped, and a line says how many were. Any thread may log.
/// Control characters inside a line (a file name may hold a line break or a terminal escape) are written as
/// \n, \xNN. Nothing is shown anywhere until somebody adds a sink.
namespace velto::log {

/// How urgent a line is; known from the line itself, so that its level cannot contradict its text.
enum class Level { info, warning, error };

/// Of one line as it was logged: from its emoji, or from how it starts when it has none.
[[nodiscard]] Level levelOf(std::string_view line);

/// Writes one line; `text` carries no line break at its end.
void line(std::string_view text);

template <typename... Args>
requires(sizeof...(Args) > 0) void line(fmt::format_string<Args...> format, Args&&... args) {
    line(std::string_view(fmt::format(format, std::forward<Args>(args)...)));
}

/// Gets whole lines, each with its line feed, in blocks, on the log's thread. It must neither throw nor log.
using Sink = std::function<void(std::string_view block)>;

/// Takes its sink out again when it goes; blocks until the lines logged so far have reached every sink.
class [[nodiscard]] SinkHandle {
  public:
    SinkHandle() = default;

    explicit SinkHandle(int identifier)
        : identifier_(identifier) {}

    SinkHandle(SinkHandle&& other) noexcept
        : identifier_(std::exchange(other.identifier_, 0)) {}

    SinkHandle& operator=(SinkHandle&& other) noexcept;
    ~SinkHandle();

  private:
    int identifier_ = 0;
};

SinkHandle addSink(Sink sink);

/// What one log file may hold before it makes way for the next.
constexpr std::uint64_t fileLimitBytes = std::uint64_t{8} << 20;

/// Appends to `path` (mode 0600): "<time in UTC> <level> <line>", the level being INFO, WARN or ERROR. A file
/// that a line would take beyond `limitBytes` becomes "<path>.1", in the place of the one that had this name,
/// and a new file is begun, in the middle of a run too: the two always hold the end of the present run whole,
/// and what this writes takes at most twice `limitBytes`. A file that somebody moves or deletes is begun
/// anew. Throws SystemError if the file cannot be opened now; what cannot be written later is lost, and
/// nobody waits for it.
SinkHandle addFileSink(const std::filesystem::path& path, std::uint64_t limitBytes = fileLimitBytes);

/// Blocks until every line logged so far has reached the sinks.
void flush();

/// For tests: collects every line from its construction on.
class Capture {
  public:
    Capture();
    /// The lines so far, without line feeds.
    [[nodiscard]] std::vector<std::string> lines() const;
    [[nodiscard]] bool contains(std::string_view text) const;

  private:
    struct State;
    std::shared_ptr<State> state_;
    SinkHandle handle_;
};

} // namespace velto::log
