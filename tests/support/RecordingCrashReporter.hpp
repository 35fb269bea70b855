#pragma once

#include "platform/core/Error.hpp"
#include "platform/log/CrashReporter.hpp"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace velto::test {

/// Keeps what is reported, from whichever thread; read it when the reporting is over.
class RecordingCrashReporter final : public CrashReporter {
  public:
    void log(std::string_view text) override {
        const std::lock_guard lock(mutex_);
        lines.emplace_back(text);
    }

    void recordError(const std::exception& error) override {
        const std::lock_guard lock(mutex_);
        errors.push_back(describe(error));
        if (onError) onError();
    }

    void setUserID(const std::optional<std::string>& identifier) override { user = identifier; }

    std::vector<std::string> lines;
    std::vector<std::string> errors;
    std::optional<std::string> user;
    std::function<void()> onError; ///< on the thread that reports it

  private:
    std::mutex mutex_;
};

} // namespace velto::test
