#pragma once

#include "platform/model/Entity.hpp"
#include "store/FileStatus.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace velto {

class Library;
class Track;

struct FileItemFields {
    std::string absPath;
    std::string relPath; ///< below the library's root; names the file in its library
    std::string filename;
    std::string ext;
    std::int64_t sizeBytes = 0;
    Date mtime;
    std::optional<Date> creationDate;
    std::optional<std::int64_t> inode; ///< the file system's unsigned number, bit for bit
    std::optional<std::string> quickSig;
    std::optional<std::string> fileHash;
    FileStatus status = FileStatus::new_;
    std::optional<double> durationSec;
    std::optional<std::int64_t> bitrateKbps;
    std::optional<std::int64_t> samplerateHz;
    std::optional<std::int64_t> channels;
    Date firstSeen;
    std::optional<Date> lastSeen;
    std::optional<Date> lastScannedAt;
    std::optional<std::string> errorMsg; ///< when status is error
    std::optional<std::string>
        genreText; ///< as last read or written here, empty if it had none; none: unknown
    model::ToOne<Library> library;
    model::ToOne<Track> track; ///< a file without one is shown nowhere
};

/// An audio file seen in a library.
class FileItem final : public model::Entity<FileItem, FileItemFields> {
  public:
    FileItem(std::string absPath, std::string relPath, std::string filename, std::string ext,
             std::int64_t sizeBytes, Date mtime, FileStatus status, Date now);

    explicit FileItem(model::Loading) {}

    static model::EntityDescription describe();
};

using FileItemRef = model::Ref<FileItem>;

} // namespace velto
