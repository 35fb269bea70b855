#pragma once

#include "platform/concurrency/Task.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "store/FileSystemInfo.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace velto {

/// The extensions of files that a scan takes, whatever the library's patterns say.
inline constexpr std::array<std::string_view, 19> audioFileExtensions = {
    "mp3", "m4a", "aac", "flac", "wav", "aiff", "aif", "ogg", "opus", "wma",
    "mp4", "m4p", "3gp", "amr",  "au",  "ra",   "rm",  "dts", "ac3"};

/// Which files of which folder.
struct WalkSettings {
    std::string rootPath;
    std::optional<std::string> includeGlob;
    std::optional<std::string> excludeGlob;
};

/// The places of a walk that could not be read to the end, by their relPaths.
class UnreadPlaces {
  public:
    void add(std::string relPath) { places_.insert(std::move(relPath)); }

    /// Whether the file is one of the places or lies below one: then nobody knows whether it is gone.
    [[nodiscard]] bool contain(std::string_view relPath) const;

    [[nodiscard]] bool empty() const { return places_.empty(); }

  private:
    std::unordered_set<std::string> places_;
};

/// What a walk saw, in its order.
struct FolderContents {
    std::vector<FileSystemInfo> files;
    UnreadPlaces unread;
};

/// The same with the files' relPaths alone, which the folders themselves say.
struct FolderNames {
    std::vector<std::string> relPaths;
    UnreadPlaces unread;
};

/// Who looks on while a folder is walked.
struct WalkWatch {
    CancellationToken token;
    std::function<void(std::size_t filesSeen)> progress; ///< now and then, on the walk's thread; may be null
};

/// Lists a folder's audio files. Both walks run on the caller's executor (call them on the pool), take every
/// file that the globs let through, and throw: ServiceError directoryAccessFailed if the folder itself cannot
/// be read to its end, ServiceError invalidGlobPattern if a pattern takes too long, CancellationError.
class FilesystemScanner {
  public:
    virtual ~FilesystemScanner() = default;

    virtual Task<FolderContents> scanDirectory(WalkSettings settings, WalkWatch watch) = 0;

    /// Quicker, as no file is asked. It may name one that scanDirectory() passes over because it cannot be
    /// asked.
    virtual Task<FolderNames> listNames(WalkSettings settings, WalkWatch watch) = 0;

    /// Whether a glob takes a file: "*.{mp3,wav}" and "*.mp3" go by the extension, anything else by the name;
    /// upper and lower case alike. Folders in `path` take no part.
    [[nodiscard]] virtual bool matchesGlob(const std::string& path, const std::string& glob) const = 0;
};

/// The walker of every scan and check. Hidden files and folders (names with a dot in front) and the folders
/// in which systems keep what was thrown away are passed over, links are not followed. Holds no state: any
/// thread.
class SimpleFilesystemScanner final : public FilesystemScanner {
  public:
    Task<FolderContents> scanDirectory(WalkSettings settings, WalkWatch watch) override;
    Task<FolderNames> listNames(WalkSettings settings, WalkWatch watch) override;
    [[nodiscard]] bool matchesGlob(const std::string& path, const std::string& glob) const override;
};

} // namespace velto
