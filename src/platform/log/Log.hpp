#pragma once

#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The program's log: plain lines with an emoji and a bracketed tag. A line costs its caller one append to a
/// buffer; a thread of the log writes blocks to the sinks. Any thread may log. Control characters inside a
/// line (a file name may hold a line break or a terminal escape) are written as \n, \xNN.
namespace velto::log {

/// Writes one line; `text` carries no line break at its end.
void line(std::string_view text);

template <typename... Args>

requires(sizeof...(Args) > 0) void line(fmt::format_string<Args...> format, Args&&... args) {
    line(std::string_view(fmt::format(format, std::forward<Args>(args)...)));
}

/// A sink gets whole lines, each with its line feed, in blocks, on the log's thread.
using Sink = std::function<void(std::string_view block)>;

/// Takes its sink out again when it goes; waits until the lines logged so far have been written.
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

/// Standard error, unbuffered blocks.
SinkHandle addStandardErrorSink();

/// Appends to `path` (mode 0600), every line with its time in UTC in front. A file of over 8 MiB is moved to
/// "<path>.1" first. Throws SystemError where the file cannot be opened.
SinkHandle addFileSink(const std::filesystem::path& path);

/// Waits until every line logged so far has reached the sinks.
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
