#include "app/MainScreenViewModel.hpp"

#include "app/LibraryCreationError.hpp"
#include "backend/LibrarySyncService.hpp"
#include "platform/files/FolderGrants.hpp"
#include "platform/files/UserDefaults.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "store/Repositories.hpp"

#include <algorithm>

namespace velto {

namespace {

/// Adds all objects of E, in turns. The context outlives its tasks.
template <typename E>
Task<void> addAll(model::ModelContext& context, std::vector<model::Ref<model::Object>>& objects) {
    const auto add = [&](const model::Ref<E>& object) { objects.emplace_back(object); };
    co_await model::forEachInTurns<E>(context, add);
}

LibraryCreationError creationError(const FolderGrantError& error) {
    return LibraryCreationError(error.kind() == FolderGrantError::Case::folderNotReadable
                                    ? LibraryCreationError::Case::accessDenied
                                    : LibraryCreationError::Case::notADirectory);
}

} // namespace

std::string MainScreenViewModel::bookmarkKey(const std::string& libraryName) {
    return "LibraryBookmark_" + libraryName;
}

Task<void> MainScreenViewModel::addLibrary(std::string name, std::filesystem::path folder,
                                           std::optional<std::string> includeGlob,
                                           std::optional<std::string> excludeGlob) {
    const auto self = shared_from_this();
    errorMessage = std::nullopt;
    if (!userSession->isSignedIn) {
        errorMessage = "Please sign in to add a library";
        co_return;
    }
    FolderGrants::Bookmark bookmark;
    try {
        const auto granting = [folder] { return FolderGrants::makeBookmark(folder); };
        bookmark = co_await offload(services_.executors, granting);
    } catch (const FolderGrantError& error) {
        throw creationError(error);
    }
    const auto taken = std::find_if(libraries->begin(), libraries->end(),
                                    [&](const LibraryRef& library) { return library->name == name; });
    // A library whose grant was lost may be added again: that is how the user gives the grant anew.
    const bool regranted = taken != libraries->end() && (*taken)->rootPath == folder.string() &&
                           !services_.userDefaults.data(bookmarkKey(name));
    if (taken != libraries->end() && !regranted)
        throw LibraryCreationError(LibraryCreationError::Case::duplicateName);
    co_await createLibrary(name, folder.string(), std::move(includeGlob), std::move(excludeGlob));
    if (errorMessage.get()) co_return;
    try {
        co_await services_.userDefaults.setData(bookmarkKey(name), std::move(bookmark));
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error);
        errorMessage = "Failed to create library: " + describe(error);
        co_return;
    }
    co_await restoreAccess(selectedLibrary);
}

Task<void> MainScreenViewModel::createLibrary(std::string name, std::string rootPath,
                                              std::optional<std::string> includeGlob,
                                              std::optional<std::string> excludeGlob) {
    const auto self = shared_from_this();
    try {
        const LibraryRef created = co_await libraryRepository_->upsertLibrary(
            std::move(name), std::move(rootPath), std::move(includeGlob), std::move(excludeGlob));
        libraries = co_await libraryRepository_->libraries();
        selectedLibrary = created;
    } catch (const std::exception& error) {
        errorMessage = "Failed to create library: " + describe(error);
        co_return;
    }
    co_await loadTracksForSelectedLibrary();
}

Task<void> MainScreenViewModel::deleteLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    // The library that is being scanned need not be selected any more.
    if (runningScan_ && (runningScan_->library == library || selectedLibrary.get() == library)) {
        co_await cancelScan();
        errorMessage = std::nullopt; // the cancellation is wanted
    }
    if (!librarySyncService) {
        try {
            co_await deleteLocally(library);
        } catch (const std::exception& error) {
            errorMessage = "Failed to delete library: " + describe(error);
        }
        co_return;
    }
    std::int64_t removed = 0;
    try {
        removed = (co_await librarySyncService->deleteLibrary(library)).deletedTracksCount;
    } catch (const std::exception& error) {
        errorMessage = "Failed to delete library: " + describe(error);
        co_return;
    }
    log::line("🗑️ [VM] Backend deletion complete: {} tracks removed", removed);
    const std::vector<TrackRef> affected = distinctTracksOf(library);
    std::string failure;
    try {
        for (const TrackRef& track : affected)
            track->edit().lastSyncedAt = std::nullopt;
        co_await model::saveInBackground(modelContext_, services_.executors);
        log::line("🔄 [VM] Cleared lastSyncedAt from {} tracks after backend deletion", affected.size());
        co_await deleteLocally(library);
        co_return;
    } catch (const std::exception& error) {
        failure = describe(error);
    }
    if (library->isDeleted())
        errorMessage = "Failed to delete library: " + failure; // gone on both sides: nothing to restore
    else
        co_await rollBackDeletion(library, affected, failure, removed);
}

Task<void> MainScreenViewModel::deleteLocally(LibraryRef library) {
    if (library->isDeleted()) co_return;
    const std::string name = library->name;
    std::exception_ptr failure;
    try {
        co_await libraryRepository_->deleteLibrary(library);
    } catch (...) {
        failure = std::current_exception();
    }
    // Where only the removal of its orphaned tracks failed, the library itself is gone all the same.
    const bool isListed = std::find(libraries->begin(), libraries->end(), library) != libraries->end();
    if (library->isDeleted() && isListed) co_await forgetLibrary(library, name);
    if (failure) std::rethrow_exception(failure);
}

Task<void> MainScreenViewModel::forgetLibrary(LibraryRef library, std::string name) {
    libraries.mutate([&](std::vector<LibraryRef>& all) { std::erase(all, library); });
    stopAccess(name);
    try {
        co_await services_.userDefaults.remove(bookmarkKey(name));
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error); // a grant too many does no harm
    }
    if (selectedLibrary.get() == library)
        selectedLibrary = libraries->empty() ? LibraryRef() : libraries->front();
    co_await loadTracksForSelectedLibrary();
}

Task<void> MainScreenViewModel::rollBackDeletion(LibraryRef library, std::vector<TrackRef> affected,
                                                 std::string localError, std::int64_t removedAtBackend) {
    log::line("⚠️ [VM] Local deletion failed after backend deletion - attempting rollback");
    try {
        co_await librarySyncService->syncLibrary(library);
        if (!affected.empty()) co_await librarySyncService->syncTracks(library, affected);
        log::line("✅ [VM] Rollback successful - library restored to backend");
        errorMessage = "Failed to delete library locally, but it has been restored: " + localError;
    } catch (const std::exception& error) {
        services_.crashReporter.recordError(error);
        log::line("❌ [VM] Rollback failed - backend and local are now out of sync!");
        errorMessage = "Critical: Library deletion failed. Backend deleted " +
                       std::to_string(removedAtBackend) +
                       " tracks but local copy remains. Please contact support.";
    }
    // The upload is not saved, so it does not count: the next sync sends the tracks once more.
    for (const TrackRef& track : affected)
        track->edit().lastSyncedAt = std::nullopt;
}

Task<void> MainScreenViewModel::clearLocalData() {
    const auto self = shared_from_this();
    log::line("🗑️ [AUTH] Clearing all local data for signout...");
    if (runningScan_) {
        co_await cancelScan();
        errorMessage = std::nullopt;
    }
    try {
        const Gate::Pass alone = co_await libraryRepository_->holdDeletions();
        std::vector<model::Ref<model::Object>> all;
        co_await addAll<Library>(modelContext_, all);
        co_await addAll<Track>(modelContext_, all);
        co_await addAll<Playlist>(modelContext_, all);
        co_await addAll<PlaylistFolder>(modelContext_, all);
        co_await model::removeInBackground(modelContext_, services_.executors, std::move(all));
        libraries = std::vector<LibraryRef>{};
        showTracks({});
        playlists = std::vector<PlaylistRef>{};
        playlistFolders = std::vector<PlaylistFolderRef>{};
        selectedLibrary = nullptr;
        selectedTracks = std::unordered_set<TrackRef>{};
        log::line("✅ [AUTH] Successfully cleared all local data");
    } catch (const std::exception& error) {
        log::line("❌ [AUTH] Failed to clear local data: {}", describe(error));
        errorMessage = "Warning: Failed to clear local data on signout: " + describe(error);
    }
}

} // namespace velto
