#include "platform/http/URLError.hpp"

namespace velto::http {

namespace {

const char* text(URLError::Code code) {
    using Code = URLError::Code;
    switch (code) {
    case Code::unknown:
        return "An unknown network error occurred.";
    case Code::cancelled:
        return "The request was cancelled.";
    case Code::badURL:
        return "The URL is not valid.";
    case Code::timedOut:
        return "The request timed out.";
    case Code::unsupportedURL:
        return "The URL's scheme is not supported.";
    case Code::cannotFindHost:
        return "The server's name could not be found.";
    case Code::cannotConnectToHost:
        return "The server could not be reached.";
    case Code::networkConnectionLost:
        return "The network connection was lost.";
    case Code::notConnectedToInternet:
        return "There is no connection to the Internet.";
    case Code::badServerResponse:
        return "The server's reply could not be understood.";
    case Code::invalidHeader:
        return "The request was not sent: a header holds a control character.";
    case Code::dataLengthExceedsMaximum:
        return "The server's reply is too large.";
    case Code::secureConnectionFailed:
        return "A secure connection to the server could not be made.";
    case Code::serverCertificateUntrusted:
        return "The server's certificate is not trusted.";
    }
    return "";
}

} // namespace

URLError::URLError(Code code)
    : Error(text(code))
    , code_(code) {}

bool isOffline(const std::exception& error) {
    const auto* urlError = dynamic_cast<const URLError*>(&error);
    return urlError != nullptr && (urlError->code() == URLError::Code::notConnectedToInternet ||
                                   urlError->code() == URLError::Code::networkConnectionLost);
}

} // namespace velto::http
