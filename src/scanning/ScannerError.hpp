#pragma once

#include "platform/core/Error.hpp"

#include <string>

namespace velto {

/// Why a scan, or a look for new files, did not come to its end.
class ScannerError : public Error {
  public:
    enum class Case {
        libraryNotAccessible, ///< payload: the path
        configurationError,
        commandFailed,
        scanAlreadyInProgress, ///< no payload, as scanCancelled
        scanCancelled,
    };

    explicit ScannerError(Case kind, const std::string& payload = {});

    [[nodiscard]] Case kind() const { return kind_; }

    [[nodiscard]] const std::string& payload() const { return payload_; }

    bool operator==(const ScannerError& other) const {
        return kind_ == other.kind_ && payload_ == other.payload_;
    }

  private:
    Case kind_;
    std::string payload_;
};

} // namespace velto
