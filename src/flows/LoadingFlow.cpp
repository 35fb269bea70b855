#include "flows/LoadingFlow.hpp"

#include "flows/FolderAccess.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "store/LibraryRepository.hpp"

#include <algorithm>
#include <map>

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

LoadingFlow::LoadingFlow(const FlowContext& context, LibraryRepository& libraryRepository,
                         FolderAccess& folderAccess)
    : context_(context)
    , state_(context.state)
    , libraryRepository_(libraryRepository)
    , folderAccess_(folderAccess) {}

Task<void> LoadingFlow::load(std::function<void()> startBackgroundWork) {
    log::line("🕐 [LOAD PERF] Starting loadData()");
    const Date start = context_.clock.now();
    const auto logTotal = [&] {
        log::line("🕐 [LOAD PERF] TOTAL loadData() time: {:.3f}s", context_.clock.secondsSince(start));
    };
    try {
        co_await model::loadInBackground(context_.modelContext, context_.executors);
        state_.libraries = co_await libraryRepository_.libraries();
    } catch (const std::exception& error) {
        state_.errorMessage = "Failed to load libraries: " + describe(error);
        log::line("🕐 [LOAD PERF] ERROR loading data: {}", describe(error));
        logTotal();
        co_return;
    }
    log::line("🕐 [LOAD PERF] Loading libraries took {:.3f}s - found {} libraries",
              context_.clock.secondsSince(start), state_.libraries->size());
    if (!state_.selectedLibrary.get()) {
        if (!state_.libraries->empty()) state_.selectedLibrary = state_.libraries->front();
        log::line("🕐 [LOAD PERF] Selected first library: {}",
                  state_.selectedLibrary.get() ? state_.selectedLibrary.get()->name : "none");
    }
    const Date tracksStart = context_.clock.now();
    if (const LibraryRef library = state_.selectedLibrary) {
        if (auto refused = co_await folderAccess_.restore(library)) state_.errorMessage = std::move(refused);
        co_await loadTracksForSelectedLibrary();
    }
    loadPlaylists();
    log::line("🕐 [LOAD PERF] Loading tracks took {:.3f}s - found {} tracks",
              context_.clock.secondsSince(tracksStart), state_.tracks->size());
    startBackgroundWork();
    logTotal();
}

void LoadingFlow::loadPlaylists() {
    try {
        state_.playlists = context_.modelContext.fetch<Playlist>();
        state_.playlistFolders = context_.modelContext.fetch<PlaylistFolder>();
    } catch (const std::exception& error) {
        state_.errorMessage = "Failed to load playlists: " + describe(error);
    }
}

Task<void> LoadingFlow::select(LibraryRef library) {
    if (!library || library->isDeleted()) co_return;
    const std::uint64_t selection = ++selections_;
    const std::string name = library->name;
    log::line("🔄 [UI STATE] Setting isLoading = true for library: {}", name);
    state_.isLoading = true;
    state_.viewMode = LibraryView{};
    log::line("🧹 [UI STATE] Clearing tracks and cache for library switch");
    showTracks({});
    state_.selectedLibrary = library;
    if (auto refused = co_await folderAccess_.restore(library)) state_.errorMessage = std::move(refused);
    co_await loadTracksForSelectedLibrary();
    if (selection != selections_) co_return; // a later one is still loading
    log::line("🔄 [UI STATE] Setting isLoading = false for library: {}", name);
    state_.isLoading = false;
}

Task<void> LoadingFlow::loadTracksForSelectedLibrary() {
    const LibraryRef library = state_.selectedLibrary;
    if (!library || library->isDeleted()) {
        log::line("🕐 [LOAD PERF] No library selected, clearing tracks");
        showTracks({});
        co_return;
    }
    const Date start = context_.clock.now();
    try {
        log::line("🕐 [LOAD PERF] Loading tracks for library: {}", library->name);
        log::line("🕐 [LOAD PERF] Library has {} files", library->files.size());
        auto loaded = co_await getAllTracksForLibrary(library);
        log::line("🕐 [LOAD PERF] getAllTracksForLibrary took {:.3f}s", context_.clock.secondsSince(start));
        // Another one was selected, which loads its own, or this one went.
        if (state_.selectedLibrary.get() != library || library->isDeleted()) co_return;
        showTracks(std::move(loaded));
        log::line("🕐 [LOAD PERF] loadTracksForSelectedLibrary TOTAL: {:.3f}s",
                  context_.clock.secondsSince(start));
    } catch (const std::exception& error) {
        state_.errorMessage = "Failed to load tracks: " + describe(error);
        log::line("🕐 [LOAD PERF] ERROR loading tracks: {}", describe(error));
    }
}

Task<std::vector<TrackRef>> LoadingFlow::getAllTracksForLibrary(LibraryRef library) {
    const std::size_t fileCount = library->files.size();
    log::line("🕐 [LOAD PERF] getAllTracksForLibrary: Starting with {} files", fileCount);
    const Date start = context_.clock.now();
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
    co_await model::forEachInTurns<FileItem>(context_.modelContext, keep);
    log::line("🕐 [LOAD PERF] compactMap {{ $0.track }} took {:.3f}s - found {} files with tracks",
              context_.clock.secondsSince(start), found.size());
    std::erase_if(withoutTrack, [](const FileItemRef& file) { return file->isDeleted(); });
    if (!withoutTrack.empty()) warnOfFilesWithoutTrack(withoutTrack);
    log::line("🕐 [LOAD PERF] getAllTracksForLibrary TOTAL: {:.3f}s - returning {} tracks (no dedup)",
              context_.clock.secondsSince(start), found.size());
    co_return found;
}

Task<void> LoadingFlow::listAndSelect(LibraryRef library) {
    state_.libraries = co_await libraryRepository_.libraries();
    if (library->isDeleted()) co_return;
    state_.viewMode = LibraryView{};
    state_.selectedLibrary = library;
}

Task<void> LoadingFlow::forget(LibraryRef library) {
    state_.libraries.mutate([&](std::vector<LibraryRef>& all) { std::erase(all, library); });
    dropDeletedSelection();
    if (state_.selectedLibrary.get() == library)
        state_.selectedLibrary = state_.libraries->empty() ? LibraryRef() : state_.libraries->front();
    co_await loadTracksForSelectedLibrary();
}

void LoadingFlow::clear() {
    state_.libraries = std::vector<LibraryRef>{};
    showTracks({});
    state_.playlists = std::vector<PlaylistRef>{};
    state_.playlistFolders = std::vector<PlaylistFolderRef>{};
    state_.viewMode = LibraryView{};
    state_.selectedLibrary = nullptr;
    state_.selectedTracks = std::unordered_set<TrackRef>{};
}

void LoadingFlow::dropDeletedSelection() {
    const auto isDeleted = [](const TrackRef& track) { return track->isDeleted(); };
    if (std::none_of(state_.selectedTracks->begin(), state_.selectedTracks->end(), isDeleted)) return;
    state_.selectedTracks.mutate([&](auto& selected) { std::erase_if(selected, isDeleted); });
}

void LoadingFlow::showTracks(std::vector<TrackRef> next) {
    state_.tracks.mutate([&](std::vector<TrackRef>& shown) { std::swap(shown, next); });
    freeOn(context_.executors.store, std::move(next));
    log::line("🗑️ [CACHE] Invalidated filteredTracks cache");
}

} // namespace velto
