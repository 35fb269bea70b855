#pragma once

#include "platform/concurrency/Task.hpp"
#include "store/FileSystemInfo.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// The extensions of files that a scan takes, whatever the library's patterns say.
inline constexpr std::array<std::string_view, 19> audioFileExtensions = {
    "mp3", "m4a", "aac", "flac", "wav", "aiff", "aif", "ogg", "opus", "wma",
    "mp4", "m4p", "3gp", "amr",  "au",  "ra",   "rm",  "dts", "ac3"};

/// The records of one walk, handed out one by one to a single reader.
class FileStream {
  public:
    FileStream() = default;

    explicit FileStream(std::vector<FileSystemInfo> files)
        : files_(std::move(files)) {}

    /// The next record, or nothing at the end.
    [[nodiscard]] std::optional<FileSystemInfo> next() {
        if (next_ == files_.size()) return std::nullopt;
        return std::move(files_[next_++]);
    }

  private:
    std::vector<FileSystemInfo> files_;
    std::size_t next_ = 0;
};

/// Lists a folder's audio files.
class FilesystemScanner {
  public:
    virtual ~FilesystemScanner() = default;

    /// Walks the tree below `path` on the caller's executor (call it on the pool) and gives every file that
    /// the globs let through, in the order of the walk. Throws ServiceError directoryAccessFailed if
    /// `path` is not a folder.
    virtual Task<FileStream> scanDirectory(std::string path, std::optional<std::string> includeGlob,
                                           std::optional<std::string> excludeGlob) = 0;

    /// Whether a glob takes a file: "*.{mp3,wav}" and "*.mp3" go by the extension, anything else by the name;
    /// upper and lower case alike. Folders in `path` take no part.
    [[nodiscard]] virtual bool matchesGlob(const std::string& path, const std::string& glob) const = 0;
};

/// The walker of every scan. Hidden files and folders (names with a dot in front) are passed over, links are
/// not followed, folders that cannot be read are passed over. Holds no state: any thread.
class SimpleFilesystemScanner final : public FilesystemScanner {
  public:
    Task<FileStream> scanDirectory(std::string path, std::optional<std::string> includeGlob,
                                   std::optional<std::string> excludeGlob) override;
    [[nodiscard]] bool matchesGlob(const std::string& path, const std::string& glob) const override;
};

} // namespace velto
