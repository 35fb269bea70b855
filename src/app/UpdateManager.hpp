#pragma once

#include "platform/concurrency/Published.hpp"

namespace velto {

/// Looks for newer versions of the program. There is no update service: the production implementation says so
/// in the log and does nothing else, and nothing leaves the machine. Main actor.
class UpdateManager {
  public:
    virtual ~UpdateManager() = default;

    /// Whether a check can start now.
    [[nodiscard]] virtual const Published<bool>& canCheckForUpdates() const = 0;
    virtual void checkForUpdates() = 0;
};

class LoggingUpdateManager final : public UpdateManager {
  public:
    LoggingUpdateManager();

    [[nodiscard]] const Published<bool>& canCheckForUpdates() const override { return canCheck_; }

    void checkForUpdates() override;

  private:
    Published<bool> canCheck_{false};
};

} // namespace velto
