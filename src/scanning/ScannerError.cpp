#include "scanning/ScannerError.hpp"

#include <string_view>

namespace velto {

namespace {

std::string_view text(ScannerError::Case kind) {
    switch (kind) {
    case ScannerError::Case::libraryNotAccessible:
        return "Library directory not accessible: ";
    case ScannerError::Case::configurationError:
        return "Scanner configuration error: ";
    case ScannerError::Case::commandFailed:
        return "Command execution failed: ";
    case ScannerError::Case::scanAlreadyInProgress:
        return "A scan is already in progress";
    case ScannerError::Case::scanCancelled:
        return "Scan was cancelled";
    }
    return "";
}

} // namespace

ScannerError::ScannerError(Case kind, const std::string& payload)
    : Error(std::string(text(kind)) + payload)
    , kind_(kind)
    , payload_(payload) {}

} // namespace velto
