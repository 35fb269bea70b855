#include "app/MainScreenViewModel.hpp"

#include "app/BackgroundTasks.hpp"
#include "backend/LibrarySyncService.hpp"
#include "platform/files/FolderGrants.hpp"
#include "platform/files/UserDefaults.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "store/Repositories.hpp"

#include <array>

namespace velto {

namespace {

/// How many files without a track a warning shows.
constexpr std::size_t sampleSize = 5;

void warnOfFilesWithoutTrack(const std::vector<FileItemRef>& files) {
    log::line("⚠️ [LOAD PERF] WARNING: {} files have NO tracks!", files.size());
    std::map<std::string_view, std::size_t> counts;
    for (const FileItemRef& file : files)
        ++counts[rawValue(file->status)];
    std::string breakdown;
    for (const auto& [status, count] : counts)
        breakdown += fmt::format("{}{}: {}", breakdown.empty() ? "" : ", ", status, count);
    log::line("⚠️ [LOAD PERF] Status breakdown: {}", breakdown);
    for (std::size_t i = 0; i < std::min(files.size(), sampleSize); ++i)
        log::line("⚠️ [LOAD PERF]   {}: {} - {}", rawValue(files[i]->status),
                  files[i]->errorMsg.value_or("No error message"), files[i]->absPath);
}

} // namespace

Task<void> MainScreenViewModel::loadData() {
    const auto self = shared_from_this();
    log::line("🕐 [LOAD PERF] Starting loadData()");
    const Date start = services_.clock.now();
    const auto logTotal = [&] {
        log::line("🕐 [LOAD PERF] TOTAL loadData() time: {:.3f}s", services_.clock.secondsSince(start));
    };
    try {
        co_await model::loadInBackground(modelContext_, services_.executors);
        libraries = co_await libraryRepository_->libraries();
    } catch (const std::exception& error) {
        errorMessage = "Failed to load libraries: " + describe(error);
        log::line("🕐 [LOAD PERF] ERROR loading data: {}", describe(error));
        logTotal();
        co_return;
    }
    log::line("🕐 [LOAD PERF] Loading libraries took {:.3f}s - found {} libraries",
              services_.clock.secondsSince(start), libraries->size());
    if (!selectedLibrary.get()) {
        if (!libraries->empty()) selectedLibrary = libraries->front();
        log::line("🕐 [LOAD PERF] Selected first library: {}",
                  selectedLibrary.get() ? selectedLibrary.get()->name : "none");
    }
    const Date tracksStart = services_.clock.now();
    if (selectedLibrary.get()) {
        co_await restoreAccess(selectedLibrary);
        co_await loadTracksForSelectedLibrary();
    }
    co_await loadPlaylists();
    log::line("🕐 [LOAD PERF] Loading tracks took {:.3f}s - found {} tracks",
              services_.clock.secondsSince(tracksStart), tracks->size());
    if (services_.checksAtLoad) {
        std::vector<LibraryRef> scanned;
        for (const LibraryRef& library : libraries.get())
            if (library->lastScanFinishedAt) scanned.push_back(library);
        background_->start(checkForNewFiles(weak_from_this(), std::move(scanned)));
        if (librarySyncService) background_->start(syncAtLaunch(weak_from_this(), libraries));
    }
    logTotal();
}

Task<void> MainScreenViewModel::loadPlaylists() {
    const auto self = shared_from_this();
    try {
        playlists = modelContext_.fetch<Playlist>();
        playlistFolders = modelContext_.fetch<PlaylistFolder>();
    } catch (const std::exception& error) {
        errorMessage = "Failed to load playlists: " + describe(error);
    }
    co_return;
}

Task<void> MainScreenViewModel::restoreAccess(LibraryRef library) {
    const auto self = shared_from_this();
    const std::string name = library->name;
    log::line("🔐 [ACCESS] Attempting to restore access for library '{}'", name);
    const auto bookmark = services_.userDefaults.data(bookmarkKey(name));
    if (!bookmark) {
        log::line("⚠️ [ACCESS] No security bookmark found for library '{}'", name);
        log::line("⚠️ [ACCESS] Library path: {}", library->rootPath);
        log::line("⚠️ [ACCESS] You may need to re-add this library to grant access permissions");
        errorMessage = "No access permission found for '" + name + "'. Please re-add the library.";
        co_return;
    }
    FolderGrants::Resolved resolved;
    try {
        const auto resolving = [bytes = *bookmark] { return FolderGrants::resolve(bytes); };
        resolved = co_await offload(services_.executors, resolving);
    } catch (const std::exception& error) {
        log::line("❌ [ACCESS] Failed to restore access to library '{}': {}", name, describe(error));
        log::line("❌ [ACCESS] Library path: {}", library->rootPath);
        errorMessage = "Cannot access library directory. Please re-add the library '" + name + "'.";
        co_return;
    }
    if (resolved.isStale)
        log::line("⚠️ [ACCESS] Security bookmark for library '{}' is stale - attempting access anyway",
                  name);
    if (!services_.folderGrants.startAccessing(resolved)) {
        log::line("❌ [ACCESS] Failed to start accessing security-scoped resource for library '{}'", name);
        log::line("❌ [ACCESS] URL: {}", resolved.path.string());
        errorMessage = "Cannot access '" + name + "' directory. Please re-add the library.";
        co_return;
    }
    stopAccess(name);
    librarySecurityScopedURLs[name] = resolved.path;
    log::line("✅ [ACCESS] Restored access to library '{}'", name);
}

void MainScreenViewModel::stopAccess(const std::string& libraryName) {
    const auto held = librarySecurityScopedURLs.find(libraryName);
    if (held == librarySecurityScopedURLs.end()) return;
    services_.folderGrants.stopAccessing(held->second);
    librarySecurityScopedURLs.erase(held);
}

Task<void> MainScreenViewModel::selectLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    const std::uint64_t selection = ++selections_;
    log::line("🔄 [UI STATE] Setting isLoading = true for library: {}", library->name);
    isLoading = true;
    viewMode = LibraryView{};
    log::line("🧹 [UI STATE] Clearing tracks and cache for library switch");
    showTracks({});
    selectedLibrary = library;
    co_await restoreAccess(library);
    co_await loadTracksForSelectedLibrary();
    if (selection != selections_) co_return; // a later one is still loading
    log::line("🔄 [UI STATE] Setting isLoading = false for library: {}", library->name);
    isLoading = false;
}

Task<void> MainScreenViewModel::loadTracksForSelectedLibrary() {
    const auto self = shared_from_this();
    const LibraryRef library = selectedLibrary;
    if (!library) {
        log::line("🕐 [LOAD PERF] No library selected, clearing tracks");
        showTracks({});
        co_return;
    }
    const Date start = services_.clock.now();
    try {
        log::line("🕐 [LOAD PERF] Loading tracks for library: {}", library->name);
        log::line("🕐 [LOAD PERF] Library has {} files", library->files.size());
        auto loaded = co_await getAllTracksForLibrary(library);
        log::line("🕐 [LOAD PERF] getAllTracksForLibrary took {:.3f}s", services_.clock.secondsSince(start));
        if (selectedLibrary.get() != library) co_return; // another one was selected, and loads its own
        showTracks(std::move(loaded));
        log::line("🕐 [LOAD PERF] loadTracksForSelectedLibrary TOTAL: {:.3f}s",
                  services_.clock.secondsSince(start));
    } catch (const std::exception& error) {
        errorMessage = "Failed to load tracks: " + describe(error);
        log::line("🕐 [LOAD PERF] ERROR loading tracks: {}", describe(error));
    }
}

Task<std::vector<TrackRef>> MainScreenViewModel::getAllTracksForLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    const std::size_t fileCount = library->files.size();
    log::line("🕐 [LOAD PERF] getAllTracksForLibrary: Starting with {} files", fileCount);
    const Date start = services_.clock.now();
    std::vector<TrackRef> found;
    found.reserve(fileCount);
    std::vector<FileItemRef> withoutTrack;
    const auto keep = [&](const FileItemRef& file) {
        if (file->library != library) return;
        if (file->track)
            found.push_back(file->track);
        else
            withoutTrack.push_back(file);
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, keep);
    log::line("🕐 [LOAD PERF] compactMap {{ $0.track }} took {:.3f}s - found {} files with tracks",
              services_.clock.secondsSince(start), found.size());
    if (!withoutTrack.empty()) warnOfFilesWithoutTrack(withoutTrack);
    log::line("🕐 [LOAD PERF] getAllTracksForLibrary TOTAL: {:.3f}s - returning {} tracks (no dedup)",
              services_.clock.secondsSince(start), found.size());
    co_return found;
}

void MainScreenViewModel::showTracks(std::vector<TrackRef> next) {
    tracks.mutate([&](std::vector<TrackRef>& shown) { std::swap(shown, next); });
    freeOnPool(services_.executors, std::move(next));
    invalidateCache();
}

} // namespace velto
