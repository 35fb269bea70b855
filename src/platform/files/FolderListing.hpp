#pragma once

#include "platform/core/Date.hpp"
#include "platform/files/Descriptor.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct __dirstream;

namespace velto::files {

enum class EntryKind : std::uint8_t {
    regularFile,
    folder,
    other,   ///< links included, which are not followed
    unknown, ///< it cannot be asked
};

struct Entry {
    std::string_view name; ///< the file system's bytes; valid until the next call of next()
    EntryKind kind;
};

struct EntryAttributes {
    std::int64_t sizeBytes;
    Date modificationDate;
    std::optional<Date> creationDate; ///< absent if the file system keeps none
    std::uint64_t inode;
};

/// The entries of one folder, in the file system's order, "." and ".." left out. Holds one descriptor. Paths
/// may be longer than a system call takes. One thread at a time; each call may block
/// for as long as the drive does.
class FolderListing {
  public:
    /// Opens the folder; `followLink` says whether a link at the path itself is followed.
    FolderListing(const std::string& path, bool followLink);
    ~FolderListing();
    FolderListing(const FolderListing&) = delete;
    FolderListing& operator=(const FolderListing&) = delete;

    /// False if the path is not a folder or cannot be read.
    [[nodiscard]] bool isOpen() const { return stream_ != nullptr; }

    /// The errno of the opening; 0 if it is open.
    [[nodiscard]] int openError() const { return openError_; }

    /// The next entry; absent at the end. Throws SystemError if the rest of the folder cannot be read.
    [[nodiscard]] std::optional<Entry> next();

    /// Of an entry by its name; absent if it is gone. Throws SystemError if it cannot be asked.
    [[nodiscard]] std::optional<EntryAttributes> attributes(std::string_view name) const;

  private:
    std::string path_;
    __dirstream* stream_ = nullptr;
    int openError_ = 0;
};

} // namespace velto::files
