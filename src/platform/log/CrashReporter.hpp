#pragma once

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// Where milestones and unexpected errors are recorded. There is no service: the production implementation
/// appends to a file of the user's own, and no data leaves the machine. Any thread may call.
class CrashReporter {
  public:
    virtual ~CrashReporter() = default;
    virtual void log(std::string_view text) = 0;
    virtual void recordError(const std::exception& error) = 0;
    /// The signed-in user's identifier; nothing clears it.
    virtual void setUserID(const std::optional<std::string>& identifier) = 0;
};

/// Appends a line for each record to `path` (mode 0600; emptied when it passes 1 MiB). If it cannot be opened
/// or written, records are lost and nobody hears of it. Each call writes before it returns.
class FileCrashReporter final : public CrashReporter {
  public:
    explicit FileCrashReporter(std::filesystem::path path);
    ~FileCrashReporter() override;
    void log(std::string_view text) override;
    void recordError(const std::exception& error) override;
    void setUserID(const std::optional<std::string>& identifier) override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace velto
