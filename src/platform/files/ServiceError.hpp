#pragma once

#include "platform/core/Error.hpp"

#include <exception>
#include <optional>
#include <string>

namespace velto {

/// The common failure of everything that works on the user's files: discovery, extraction, tag writing.
class ServiceError : public Error {
  public:
    enum class Case {
        fileNotFound,
        fileNotReadable,
        fileNotWritable,
        unsupportedFileType,
        metadataExtractionFailed,
        metadataWriteFailed,
        hashingFailed,
        directoryAccessFailed,
        invalidGlobPattern,
        scanCancelled,
    };

    /// `payload` is the path, extension or pattern that the case's text ends with; `underlying` is the text
    /// of the failure that caused it, for the cases that can have one.
    explicit ServiceError(Case kind, const std::string& payload = {},
                          const std::optional<std::string>& underlying = std::nullopt);

    [[nodiscard]] Case kind() const { return kind_; }

    [[nodiscard]] const std::string& payload() const { return payload_; }

    /// Empty if there is none.
    [[nodiscard]] const std::string& underlying() const { return underlying_; }

  private:
    Case kind_;
    std::string payload_;
    std::string underlying_;
};

} // namespace velto
