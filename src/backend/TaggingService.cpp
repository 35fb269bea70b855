#include "backend/TaggingService.hpp"

#include <fmt/format.h>

#include <utility>

namespace velto {

TaggingServiceError::TaggingServiceError(Case kind, const std::string& text)
    : Error(text)
    , kind_(kind) {}

TaggingServiceError TaggingServiceError::insufficientCredits(std::int64_t needed, std::int64_t available) {
    TaggingServiceError error(
        Case::insufficientCredits,
        fmt::format("Insufficient credits. You need {} credits but only have {}.", needed, available));
    error.first_ = needed;
    error.second_ = available;
    return error;
}

TaggingServiceError TaggingServiceError::partialFailure(std::int64_t tagged, std::int64_t failed,
                                                        std::vector<TaggingError> errors) {
    std::string text = fmt::format("Tagged {} tracks successfully, but {} failed:\n", tagged, failed);
    for (std::size_t i = 0; i < errors.size(); ++i)
        text += (i > 0 ? "\n" : "") + errors[i].message;
    TaggingServiceError error(Case::partialFailure, text);
    error.first_ = tagged;
    error.second_ = failed;
    error.errors_ = std::move(errors);
    return error;
}

TaggingServiceError TaggingServiceError::networkError(const std::exception_ptr& underlying) {
    TaggingServiceError error(Case::networkError, "Network error: " + describe(underlying));
    error.underlying_ = underlying;
    return error;
}

TaggingServiceError TaggingServiceError::rateLimitExceeded(std::optional<std::int64_t> retryAfter) {
    const std::string wait =
        retryAfter ? fmt::format("Please wait {:.1f} seconds.", static_cast<double>(*retryAfter) / 1000.0)
                   : "Please try again later.";
    TaggingServiceError error(Case::rateLimitExceeded, "Rate limit exceeded. " + wait);
    error.retryAfter_ = retryAfter;
    return error;
}

TaggingServiceError TaggingServiceError::authenticationRequired() {
    return {Case::authenticationRequired, "Authentication required. Please sign in."};
}

} // namespace velto
