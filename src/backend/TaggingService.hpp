#pragma once

#include "backend/TaggingRecords.hpp"
#include "platform/concurrency/Task.hpp"
#include "platform/core/Error.hpp"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace velto {

/// What one request brought, as received.
struct TaggingResult {
    bool success = false;
    std::string message;
    std::int64_t tracksTagged = 0;
    std::int64_t creditsConsumed = 0;
    std::vector<TrackTags> tags;
    std::vector<TaggingError> errors;
    std::optional<bool> shouldRetry;
    /// Milliseconds.
    std::optional<std::int64_t> retryAfter;
};

class TaggingServiceError : public Error {
  public:
    enum class Case {
        insufficientCredits,
        partialFailure,
        networkError,
        rateLimitExceeded,
        authenticationRequired
    };

    static TaggingServiceError insufficientCredits(std::int64_t needed, std::int64_t available);
    static TaggingServiceError partialFailure(std::int64_t tagged, std::int64_t failed,
                                              std::vector<TaggingError> errors);
    static TaggingServiceError networkError(const std::exception_ptr& underlying);
    /// Milliseconds, if the server said how long.
    static TaggingServiceError rateLimitExceeded(std::optional<std::int64_t> retryAfter);
    static TaggingServiceError authenticationRequired();

    [[nodiscard]] Case kind() const { return kind_; }

    /// insufficientCredits.
    [[nodiscard]] std::int64_t needed() const { return first_; }

    [[nodiscard]] std::int64_t available() const { return second_; }

    /// partialFailure.
    [[nodiscard]] std::int64_t tagged() const { return first_; }

    [[nodiscard]] std::int64_t failed() const { return second_; }

    [[nodiscard]] const std::vector<TaggingError>& errors() const { return errors_; }

    /// rateLimitExceeded.
    [[nodiscard]] std::optional<std::int64_t> retryAfter() const { return retryAfter_; }

    /// networkError.
    [[nodiscard]] const std::exception_ptr& underlying() const { return underlying_; }

  private:
    TaggingServiceError(Case kind, const std::string& text);

    Case kind_;
    std::int64_t first_ = 0;
    std::int64_t second_ = 0;
    std::vector<TaggingError> errors_;
    std::optional<std::int64_t> retryAfter_;
    std::exception_ptr underlying_;
};

/// Asks the backend for the tags of one batch of tracks, against credits.
class TaggingService {
  public:
    virtual ~TaggingService() = default;

    /// Any executor, several at once; comes back on the caller's. Throws TaggingServiceError.
    virtual Task<TaggingResult> tagTracks(std::vector<TrackTaggingInput> tracks) = 0;
};

} // namespace velto
