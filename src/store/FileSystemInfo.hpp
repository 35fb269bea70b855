#pragma once

#include "platform/core/Date.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace velto {

/// One discovered file.
struct FileSystemInfo {
    std::string absPath;
    std::string relPath; ///< below the library's root, without a leading slash: names the file in its library
    std::string filename; ///< last component of absPath, with its extension
    std::string ext;      ///< lower case, without the dot
    std::int64_t sizeBytes = 0;
    Date mtime;
    std::optional<std::uint64_t> inode; ///< part of the file's signature if it is given
    std::uint64_t fileNumber = 0;       ///< the inode, by which a renamed file is known; 0 if nobody asked
    std::optional<Date> creationDate = std::nullopt; ///< absent if nobody asked for it or none is kept

    bool operator==(const FileSystemInfo&) const = default;
};

} // namespace velto
