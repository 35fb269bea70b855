#include "platform/files/ServiceError.hpp"

#include <string_view>

namespace velto {

namespace {

std::string_view text(ServiceError::Case kind) {
    switch (kind) {
    case ServiceError::Case::fileNotFound:
        return "File not found: ";
    case ServiceError::Case::fileNotReadable:
        return "File not readable: ";
    case ServiceError::Case::fileNotWritable:
        return "File not writable: ";
    case ServiceError::Case::unsupportedFileType:
        return "Unsupported file type: ";
    case ServiceError::Case::metadataExtractionFailed:
        return "Failed to extract metadata from: ";
    case ServiceError::Case::metadataWriteFailed:
        return "Failed to write metadata to: ";
    case ServiceError::Case::hashingFailed:
        return "Failed to hash file: ";
    case ServiceError::Case::directoryAccessFailed:
        return "Failed to access directory: ";
    case ServiceError::Case::invalidGlobPattern:
        return "Invalid glob pattern: ";
    case ServiceError::Case::scanCancelled:
        return "Scan was cancelled";
    }
    return "";
}

std::string fullText(ServiceError::Case kind, const std::string& payload,
                     const std::optional<std::string>& underlying) {
    std::string full(text(kind));
    full += payload;
    if (underlying) full += " - " + *underlying;
    return full;
}

} // namespace

ServiceError::ServiceError(Case kind, const std::string& payload,
                           const std::optional<std::string>& underlying)
    : Error(fullText(kind, payload, underlying))
    , kind_(kind)
    , payload_(payload)
    , underlying_(underlying.value_or("")) {}

} // namespace velto
