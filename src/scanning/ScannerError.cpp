#include "scanning/ScannerError.hpp"

#include <string_view>

namespace velto {

namespace {

std::string_view text(ScannerError::Case kind) {
    switch (kind) {
    case ScannerError::Case::libraryNotAccessible:
        return "Library directory not accessible: ";
    case ScannerError::Case::manyFilesMissing:
        return "Most files of the library were not found: ";
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

ScannerError ScannerError::notAccessible(const std::string& rootPath, std::string_view reason) {
    return ScannerError(Case::libraryNotAccessible,
                        reason.empty() ? rootPath : rootPath + " (" + std::string(reason) + ")");
}

} // namespace velto
