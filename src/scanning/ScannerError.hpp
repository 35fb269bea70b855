#pragma once

#include "platform/core/Error.hpp"

#include <string>
#include <string_view>

namespace velto {

/// Why a scan, or a look for new files, did not come to its end.
class ScannerError : public Error {
  public:
    enum class Case {
        libraryNotAccessible, ///< payload: the path, and why if that is known
        manyFilesMissing,     ///< payload: how many of how many; the caller may ask the user and accept it
        configurationError,
        commandFailed,
        scanAlreadyInProgress, ///< no payload, as scanCancelled
        scanCancelled,
    };

    explicit ScannerError(Case kind, const std::string& payload = {});

    /// The libraryNotAccessible of this folder; `reason` may be empty.
    [[nodiscard]] static ScannerError notAccessible(const std::string& rootPath, std::string_view reason);

    static constexpr std::string_view notMounted = "not mounted";

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
