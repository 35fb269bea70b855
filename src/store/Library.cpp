#include "store/Library.hpp"

#include "platform/text/RelativeDate.hpp"
#include "store/FileItem.hpp"
#include "store/ScanRun.hpp"
#include "store/Track.hpp"

#include <fmt/format.h>

#include <unordered_set>

namespace velto {

Library::Library(std::string itsName, std::string itsRootPath, std::optional<std::string> itsIncludeGlob,
                 std::optional<std::string> itsExcludeGlob, bool itsIsEnabled) {
    auto& fields = edit();
    fields.name = std::move(itsName);
    fields.rootPath = std::move(itsRootPath);
    fields.includeGlob = std::move(itsIncludeGlob);
    fields.excludeGlob = std::move(itsExcludeGlob);
    fields.isEnabled = itsIsEnabled;
}

model::EntityDescription Library::describe() {
    using model::DeleteRule;
    return model::EntityBuilder<Library>("Library")
        .uniqueAttribute<&LibraryFields::name>("name")
        .attribute<&LibraryFields::rootPath>("rootPath")
        .attribute<&LibraryFields::includeGlob>("includeGlob")
        .attribute<&LibraryFields::excludeGlob>("excludeGlob")
        .attribute<&LibraryFields::isEnabled>("isEnabled")
        .attribute<&LibraryFields::lastScanStartedAt>("lastScanStartedAt")
        .attribute<&LibraryFields::lastScanFinishedAt>("lastScanFinishedAt")
        .attribute<&LibraryFields::lastSyncedAt>("lastSyncedAt")
        .toMany<&LibraryFields::files, &FileItemFields::library>("files", DeleteRule::cascade)
        .toMany<&LibraryFields::scanRuns, &ScanRunFields::library>("scanRuns", DeleteRule::cascade)
        .build();
}

std::string Library::trackCountText() const {
    return files.size() == 1 ? "1 track" : fmt::format("{} tracks", files.size());
}

std::string Library::lastImportText(Date now) const {
    if (!lastScanFinishedAt) return "Never imported";
    return "Last import: " + text::relativeDate(*lastScanFinishedAt, now);
}

std::string pathBelow(const std::string& rootPath, std::string_view relPath) {
    std::string path = rootPath;
    if (!path.ends_with('/')) path += '/';
    return path.append(relPath);
}

std::vector<FileItemRef> missingFilesOf(const LibraryRef& library) {
    std::vector<FileItemRef> missing;
    for (const FileItemRef& file : library->files)
        if (file->status == FileStatus::missing) missing.push_back(file);
    return missing;
}

std::vector<TrackRef> distinctTracksOf(const LibraryRef& library) {
    std::vector<TrackRef> tracks;
    tracks.reserve(library->files.size());
    std::unordered_set<const Track*> known;
    for (auto file = library->files.begin(); file != library->files.end(); ++file) {
        const Track* track = file->track.get();
        if (track == nullptr) continue;
        const bool isOnlyFile = track->files.size() == 1; // mostly: nothing to remember then
        if (isOnlyFile || known.insert(track).second) tracks.push_back(file->track.ref());
    }
    return tracks;
}

} // namespace velto
