#pragma once

#include "platform/core/Error.hpp"

#include <exception>

namespace velto::http {

/// Why a request got no reply. The numbers are what log lines show; they never change their meaning.
class URLError : public Error {
  public:
    enum class Code {
        unknown = -1,
        cancelled = -999,
        badURL = -1000,
        timedOut = -1001,
        unsupportedURL = -1002,
        cannotFindHost = -1003,
        cannotConnectToHost = -1004,
        networkConnectionLost = -1005,
        notConnectedToInternet = -1009,
        badServerResponse = -1011,
        invalidHeader = -1099,
        dataLengthExceedsMaximum = -1103,
        secureConnectionFailed = -1200,
        serverCertificateUntrusted = -1202,
    };

    explicit URLError(Code code);

    [[nodiscard]] Code code() const { return code_; }

    [[nodiscard]] int rawCode() const { return static_cast<int>(code_); }

  private:
    Code code_;
};

/// The user is offline or has just gone offline: expected, and never recorded as an error.
[[nodiscard]] bool isOffline(const std::exception& error);

} // namespace velto::http
