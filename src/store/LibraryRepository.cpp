#include "store/LibraryRepository.hpp"

#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "platform/text/Text.hpp"

#include <algorithm>
#include <unordered_set>

namespace velto {

namespace {
constexpr std::size_t tracksPerTurn = 2'000; // a millisecond or two of the main actor
} // namespace

LibraryRepository::LibraryRepository(ModelContext& modelContext, const Clock& clock, Executors executors)
    : modelContext_(modelContext)
    , clock_(clock)
    , executors_(std::move(executors))
    , deletions_(executors_.main) {}

Task<std::vector<LibraryRef>> LibraryRepository::libraries() {
    log::line("🕐 [REPO PERF] Starting libraries() fetch");
    const Date start = clock_.now();
    auto libraries = modelContext_.fetch<Library>();
    std::stable_sort(libraries.begin(), libraries.end(), [](const LibraryRef& left, const LibraryRef& right) {
        return text::localizedCompareCaseInsensitive(left->name, right->name) < 0;
    });
    log::line("🕐 [REPO PERF] libraries() fetch took {:.3f}s - found {} libraries", clock_.secondsSince(start),
              libraries.size());
    for (std::size_t i = 0; i < libraries.size(); ++i)
        log::line("🕐 [REPO PERF] Library {}: {} has {} files", i, libraries[i]->name,
                  libraries[i]->files.size());
    co_return libraries;
}

Task<LibraryRef> LibraryRepository::upsertLibrary(std::string name, std::string rootPath,
                                                  std::optional<std::string> includeGlob,
                                                  std::optional<std::string> excludeGlob) {
    LibraryRef library = modelContext_.findUnique<Library>("name", name);
    const bool isNew = !library;
    if (isNew) {
        library = model::make<Library>(std::move(name), std::move(rootPath), std::move(includeGlob),
                                       std::move(excludeGlob), true);
        modelContext_.insert(library);
    } else {
        auto& fields = library->edit();
        fields.rootPath = std::move(rootPath);
        fields.includeGlob = std::move(includeGlob);
        fields.excludeGlob = std::move(excludeGlob);
    }
    try {
        const model::SaveOutcome saved = co_await model::saveInBackground(modelContext_, executors_);
        saved.throwIfRefused(library);
    } catch (...) {
        if (isNew) modelContext_.remove(library); // or the next save of anything would make it after all
        throw;
    }
    co_return library;
}

Task<void> LibraryRepository::deleteLibrary(LibraryRef library) {
    const Gate::Pass alone = co_await deletions_.enter();
    log::line("🗑️ [LIBRARY] Deleting library '{}' with {} files", library->name, library->files.size());
    auto tracks = distinctTracksOf(library);
    log::line("🗑️ [LIBRARY] Found {} tracks that may become orphaned", tracks.size());
    std::vector<model::Ref<model::Object>> removed(1, library);
    co_await model::removeInBackground(modelContext_, executors_, std::move(removed));
    log::line("🗑️ [LIBRARY] Library and files deleted, checking for orphaned tracks...");
    co_await deleteOrphans(std::move(tracks));
    log::line("✅ [LIBRARY] Library deletion complete");
}

Task<void> LibraryRepository::deleteOrphans(std::vector<TrackRef> tracks) {
    std::vector<model::Ref<model::Object>> orphans;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const TrackRef& track = tracks[i];
        if ((i + 1) % tracksPerTurn == 0) co_await yieldNow();
        if (track->isDeleted()) continue; // by others, while this gave way
        if (track->files.empty()) {
            orphans.emplace_back(track);
        } else {
            ++kept;
            log::line("🗑️ [LIBRARY] Track still has {} files in other libraries: {} - {}",
                      track->files.size(), track->artist.value_or("Unknown"),
                      track->title.value_or("Unknown"));
        }
    }
    if (!orphans.empty()) log::line("🗑️ [LIBRARY] Deleting {} orphaned track(s)", orphans.size());
    if (kept > 0) log::line("🗑️ [LIBRARY] Keeping {} track(s) that have files in other libraries", kept);
    co_await model::removeInBackground(modelContext_, executors_, std::move(orphans));
    freeOn(executors_.store, std::move(tracks));
}

/// In turns that give way.
Task<void> LibraryRepository::setRoot(LibraryRef library, std::string rootPath) {
    library->edit().rootPath = rootPath;
    const auto follow = [&](const FileItemRef& file) {
        if (file->library == library) file->edit().absPath = pathBelow(rootPath, file->relPath);
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, follow);
}

Task<void> LibraryRepository::relocateLibrary(LibraryRef library, std::string rootPath) {
    const Gate::Pass alone = co_await deletions_.enter();
    const std::string before = library->rootPath;
    co_await setRoot(library, rootPath);
    std::exception_ptr failure;
    try {
        const model::SaveOutcome saved = co_await model::saveInBackground(modelContext_, executors_);
        saved.throwIfRefused(library);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!failure) co_return;
    co_await setRoot(library, before);
    std::rethrow_exception(failure);
}

Task<void> LibraryRepository::forgetFiles(std::vector<FileItemRef> missing) {
    const Gate::Pass alone = co_await deletions_.enter();
    std::vector<model::Ref<model::Object>> records;
    std::unordered_set<TrackRef> tracks;
    for (const FileItemRef& file : missing) {
        if (file->isDeleted() || file->status != FileStatus::missing) continue;
        records.emplace_back(file);
        if (file->track) tracks.insert(file->track);
    }
    co_await model::removeInBackground(modelContext_, executors_, std::move(records));
    std::vector<TrackRef> left(tracks.begin(), tracks.end());
    co_await deleteOrphans(std::move(left));
}

Task<Gate::Pass> LibraryRepository::holdDeletions() {
    return deletions_.enter();
}

Task<void> LibraryRepository::updateScanTimes(LibraryRef library, std::optional<Date> startedAt,
                                              std::optional<Date> finishedAt) {
    if (startedAt) library->edit().lastScanStartedAt = startedAt;
    if (finishedAt) library->edit().lastScanFinishedAt = finishedAt;
    co_await model::saveInBackground(modelContext_, executors_);
}

} // namespace velto
