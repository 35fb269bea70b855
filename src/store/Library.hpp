#pragma once

#include "platform/model/Entity.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

class FileItem;
class ScanRun;
class Track;

/// The files that count as music unless the user says otherwise.
inline constexpr std::string_view defaultIncludeGlob = "*.{mp3,m4a,aif,aiff,wav,flac}";

struct LibraryFields {
    std::string name; ///< unique, shown to the user
    std::string rootPath;
    std::optional<std::string> includeGlob; ///< pattern of files to take
    std::optional<std::string> excludeGlob; ///< pattern of files to leave out
    bool isEnabled = false;
    std::optional<Date> lastScanStartedAt;
    std::optional<Date> lastScanFinishedAt;
    std::optional<Date> lastSyncedAt; ///< latest completed sync with the backend
    model::ToMany<FileItem> files;    ///< cascade
    model::ToMany<ScanRun> scanRuns;  ///< cascade
};

/// A scanned music folder.
class Library final : public model::Entity<Library, LibraryFields> {
  public:
    Library(std::string name, std::string rootPath, std::optional<std::string> includeGlob,
            std::optional<std::string> excludeGlob, bool isEnabled);

    explicit Library(model::Loading) {}

    static model::EntityDescription describe();

    /// "1 track", "12 tracks": counts files, not distinct tracks.
    [[nodiscard]] std::string trackCountText() const;

    /// "Never imported" or "Last import: " with the date relative to `now` ("yesterday", "2 hours ago").
    [[nodiscard]] std::string lastImportText(Date now) const;
};

using LibraryRef = model::Ref<Library>;

/// The absolute path of a library's file.
[[nodiscard]] std::string pathBelow(const std::string& rootPath, std::string_view relPath);

/// The records of the library whose files the last scan did not find.
[[nodiscard]] std::vector<model::Ref<FileItem>> missingFilesOf(const LibraryRef& library);

/// Every track that a file of the library links to, once, in the order of the files.
[[nodiscard]] std::vector<model::Ref<Track>> distinctTracksOf(const LibraryRef& library);

} // namespace velto
