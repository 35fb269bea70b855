#pragma once

#include "platform/concurrency/Published.hpp"

namespace velto {

/// Looks for newer versions of the program. No update service exists: the production implementation logs and
/// does nothing else, so that nothing leaves the machine. Main actor.
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
