#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace velto {

/// State of a file as the last scan found it; of a track, worked out from its files.
enum class FileStatus : std::uint8_t {
    new_,    ///< seen for the first time by the running scan
    ready,   ///< scanned, unchanged, usable
    changed, ///< content differs from the last scan
    missing, ///< the path was not found by the last scan
    error,   ///< the scan could not process the file; the file's errorMsg says why
};

inline constexpr std::array fileStatuses{FileStatus::new_, FileStatus::ready, FileStatus::changed,
                                         FileStatus::missing, FileStatus::error};

/// All cases in their order.
constexpr const auto& allCases(FileStatus) {
    return fileStatuses;
}

/// The text that the store and JSON hold.
constexpr std::string_view rawValue(FileStatus status) {
    switch (status) {
    case FileStatus::new_:
        return "new";
    case FileStatus::ready:
        return "ready";
    case FileStatus::changed:
        return "changed";
    case FileStatus::missing:
        return "missing";
    case FileStatus::error:
        return "error";
    }
    return "error";
}

} // namespace velto
