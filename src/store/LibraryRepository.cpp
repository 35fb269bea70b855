#include "platform/log/Log.hpp"
#include "store/StoreRepositories.hpp"

#include <unordered_set>

namespace velto {

namespace {

/// Every track that a file of the library links to, once, in the order of the files.
std::vector<TrackRef> tracksOf(const LibraryRef& library) {
    std::vector<TrackRef> tracks;
    std::unordered_set<const Track*> known;
    for (const auto& file : library->files)
        if (file->track && known.insert(file->track.get()).second) tracks.push_back(file->track);
    return tracks;
}

} // namespace

SwiftDataLibraryRepository::SwiftDataLibraryRepository(ModelContext& modelContext, const Clock& clock)
    : modelContext_(modelContext)
    , clock_(clock) {}

Task<std::vector<LibraryRef>> SwiftDataLibraryRepository::libraries() {
    log::line("🕐 [REPO PERF] Starting libraries() fetch");
    const Date start = clock_.now();
    auto libraries = modelContext_.fetch<Library>(
        [](const Library&) { return true; },
        [](const Library& left, const Library& right) { return left.name < right.name; });
    log::line("🕐 [REPO PERF] libraries() fetch took {:.3f}s - found {} libraries", clock_.secondsSince(start),
              libraries.size());
    for (std::size_t i = 0; i < libraries.size(); ++i)
        log::line("🕐 [REPO PERF] Library {}: {} has {} files", i, libraries[i]->name,
                  libraries[i]->files.size());
    co_return libraries;
}

Task<LibraryRef> SwiftDataLibraryRepository::upsertLibrary(std::string name, std::string rootPath,
                                                           std::optional<std::string> includeGlob,
                                                           std::optional<std::string> excludeGlob) {
    LibraryRef library = modelContext_.findUnique<Library>("name", name);
    if (!library) {
        library = model::make<Library>(std::move(name), std::move(rootPath), std::move(includeGlob),
                                       std::move(excludeGlob), true);
        modelContext_.insert(library);
    } else {
        auto& fields = library->edit();
        fields.rootPath = std::move(rootPath);
        fields.includeGlob = std::move(includeGlob);
        fields.excludeGlob = std::move(excludeGlob);
    }
    modelContext_.save();
    co_return library;
}

Task<void> SwiftDataLibraryRepository::deleteLibrary(LibraryRef library) {
    log::line("🗑️ [LIBRARY] Deleting library '{}' with {} files", library->name, library->files.size());
    const auto tracks = tracksOf(library);
    log::line("🗑️ [LIBRARY] Found {} tracks that may become orphaned", tracks.size());
    modelContext_.remove(library);
    modelContext_.save();
    log::line("🗑️ [LIBRARY] Library and files deleted, checking for orphaned tracks...");
    std::size_t deleted = 0;
    for (const auto& track : tracks) {
        if (track->files.empty()) {
            modelContext_.remove(track);
            ++deleted;
        } else {
            log::line("🗑️ [LIBRARY] Track still has {} files in other libraries: {} - {}",
                      track->files.size(), track->artist.value_or("Unknown"),
                      track->title.value_or("Unknown"));
        }
    }
    const std::size_t kept = tracks.size() - deleted;
    if (deleted > 0) log::line("🗑️ [LIBRARY] Deleting {} orphaned track(s)", deleted);
    if (kept > 0) log::line("🗑️ [LIBRARY] Keeping {} track(s) that have files in other libraries", kept);
    modelContext_.save();
    log::line("✅ [LIBRARY] Library deletion complete");
    co_return;
}

Task<void> SwiftDataLibraryRepository::updateScanTimes(LibraryRef library, std::optional<Date> startedAt,
                                                       std::optional<Date> finishedAt) {
    if (startedAt) library->edit().lastScanStartedAt = startedAt;
    if (finishedAt) library->edit().lastScanFinishedAt = finishedAt;
    modelContext_.save();
    co_return;
}

} // namespace velto
