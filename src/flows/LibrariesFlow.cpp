#include "flows/LibrariesFlow.hpp"

#include "backend/LibrarySyncService.hpp"
#include "flows/FolderAccess.hpp"
#include "flows/LibraryCreationError.hpp"
#include "flows/LoadingFlow.hpp"
#include "flows/ScanningFlow.hpp"
#include "flows/SyncFlow.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "platform/text/Text.hpp"
#include "store/LibraryRepository.hpp"

#include <algorithm>
#include <utility>

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

struct GrantedFolder {
    std::filesystem::path path;
    FolderGrants::Grant grant;
};

/// The folder itself and its grant: a search for new files does not follow a link at its root, and a relative
/// path means another folder at the next start.
GrantedFolder granted(const std::filesystem::path& folder) {
    std::error_code error;
    const auto real = std::filesystem::canonical(folder, error);
    if (error == std::errc::permission_denied)
        throw FolderGrantError(FolderGrantError::Case::folderNotReadable, folder);
    if (error) throw FolderGrantError(FolderGrantError::Case::folderNotFound, folder);
    return {real, FolderGrants::makeGrant(real)};
}

/// Whether one of these files is in the folder.
bool holdsAny(const std::string& folder, const std::vector<std::string>& relPaths) {
    return std::any_of(relPaths.begin(), relPaths.end(), [&](const std::string& relPath) {
        return files::isRegularFile(pathBelow(folder, relPath));
    });
}

/// The same path for a folder that may be away just now; empty if there is none.
std::filesystem::path realPath(const std::filesystem::path& folder) {
    std::error_code error;
    const auto real = std::filesystem::weakly_canonical(std::filesystem::absolute(folder, error), error);
    if (error) return {};
    return real.has_filename() ? real : real.parent_path();
}

} // namespace

struct LibrariesFlow::NewLibrary {
    std::string name;
    std::string rootPath;
    std::optional<std::string> includeGlob;
    std::optional<std::string> excludeGlob;
    std::uint64_t clearings; ///< at the time of the wish
};

LibrariesFlow::LibrariesFlow(const FlowContext& context, LibraryRepository& libraryRepository,
                             FolderAccess& folderAccess, LoadingFlow& loading, ScanningFlow& scanning,
                             SyncFlow& sync)
    : context_(context)
    , state_(context.state)
    , libraryRepository_(libraryRepository)
    , folderAccess_(folderAccess)
    , loading_(loading)
    , scanning_(scanning)
    , sync_(sync)
    , creations_(context.executors.main) {}

Task<LibraryRef> LibrariesFlow::add(std::string name, std::filesystem::path folder,
                                    std::optional<std::string> includeGlob,
                                    std::optional<std::string> excludeGlob) {
    const BackgroundTasks::Pass awaited = context_.background.enter();
    state_.errorMessage = std::nullopt;
    if (!state_.userSession->isSignedIn) {
        state_.errorMessage = "Please sign in to add a library";
        co_return LibraryRef();
    }
    NewLibrary wanted{name, {}, std::move(includeGlob), std::move(excludeGlob), clearings_};
    FolderGrants::Grant grant;
    try {
        const auto granting = [folder] { return granted(folder); };
        GrantedFolder chosen = co_await offload(context_.executors, granting);
        wanted.rootPath = chosen.path.string();
        grant = std::move(chosen.grant);
    } catch (const FolderGrantError& error) {
        throw creationError(error);
    }
    const Gate::Pass alone = co_await creations_.enter();
    const LibraryRef library = co_await createAlone(std::move(wanted));
    if (!library) co_return library;
    try {
        co_await folderAccess_.keep(name, std::move(grant));
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        state_.errorMessage = "Failed to create library: " + describe(error);
        co_return LibraryRef();
    }
    if (auto refused = co_await folderAccess_.restore(library)) state_.errorMessage = std::move(refused);
    co_return library->isDeleted() ? LibraryRef() : library;
}

Task<LibraryRef> LibrariesFlow::create(std::string name, std::string rootPath,
                                       std::optional<std::string> includeGlob,
                                       std::optional<std::string> excludeGlob) {
    const BackgroundTasks::Pass awaited = context_.background.enter();
    NewLibrary wanted{std::move(name), {}, std::move(includeGlob), std::move(excludeGlob), clearings_};
    const auto looking = [rootPath] { return realPath(rootPath).string(); };
    wanted.rootPath = co_await offload(context_.executors, looking);
    if (wanted.rootPath.empty()) throw LibraryCreationError(LibraryCreationError::Case::notADirectory);
    const Gate::Pass alone = co_await creations_.enter();
    co_return co_await createAlone(std::move(wanted));
}

/// A library whose grant was lost may be added again: that is how the user gives the grant anew.
Task<void> LibrariesFlow::checkName(std::string name, std::string rootPath) {
    if (text::trimmed(name).empty()) throw LibraryCreationError(LibraryCreationError::Case::emptyName);
    // The list on show may not be loaded yet; the store knows.
    co_await model::loadInBackground(context_.modelContext, context_.executors);
    const LibraryRef taken = context_.modelContext.findUnique<Library>("name", name);
    if (taken && (taken->rootPath != rootPath || folderAccess_.hasGrant(name)))
        throw LibraryCreationError(LibraryCreationError::Case::duplicateName);
}

Task<LibraryRef> LibrariesFlow::createAlone(NewLibrary wanted) {
    co_await checkName(wanted.name, wanted.rootPath);
    if (wanted.clearings != clearings_) co_return LibraryRef();
    LibraryRef created;
    try {
        created = co_await libraryRepository_.upsertLibrary(
            std::move(wanted.name), std::move(wanted.rootPath), std::move(wanted.includeGlob),
            std::move(wanted.excludeGlob));
        co_await loading_.listAndSelect(created);
    } catch (const std::exception& error) {
        state_.errorMessage = "Failed to create library: " + describe(error);
        co_return LibraryRef();
    }
    co_await loading_.loadTracksForSelectedLibrary();
    co_return created->isDeleted() ? LibraryRef() : created;
}

Task<void> LibrariesFlow::remove(LibraryRef library) {
    if (library->isDeleted() || !beingRemoved_.insert(library).second) co_return;
    const BackgroundTasks::Pass awaited = context_.background.enter();
    co_await removeEverywhere(library);
    beingRemoved_.erase(library);
}

Task<void> LibrariesFlow::removeEverywhere(LibraryRef library) {
    const ScanningFlow::Hold unscanned = co_await scanning_.hold(library);
    if (library->isDeleted()) co_return; // by a sign-out
    const auto service = sync_.service();
    if (!service) {
        try {
            co_await removeLocally(library);
        } catch (const std::exception& error) {
            state_.errorMessage = "Failed to delete library: " + describe(error);
        }
        co_return;
    }
    std::int64_t removed = 0;
    try {
        removed = (co_await service->deleteLibrary(library)).deletedTracksCount;
    } catch (const std::exception& error) {
        if (!library->isDeleted()) state_.errorMessage = "Failed to delete library: " + describe(error);
        co_return;
    }
    log::line("🗑️ [VM] Backend deletion complete: {} tracks removed", removed);
    const std::vector<TrackRef> affected =
        library->isDeleted() ? std::vector<TrackRef>() : distinctTracksOf(library);
    std::string failure;
    try {
        for (const TrackRef& track : affected)
            track->edit().lastSyncedAt = std::nullopt;
        co_await model::saveInBackground(context_.modelContext, context_.executors);
        log::line("🔄 [VM] Cleared lastSyncedAt from {} tracks after backend deletion", affected.size());
        co_await removeLocally(library);
        co_return;
    } catch (const std::exception& error) {
        failure = describe(error);
    }
    if (!library->isDeleted())
        co_await rollBack(library, affected, failure, removed);
    else // gone on both sides: nothing to restore
        state_.errorMessage = "Failed to delete library: " + failure;
}

Task<void> LibrariesFlow::removeLocally(LibraryRef library) {
    if (library->isDeleted()) co_return;
    const std::string name = library->name;
    std::exception_ptr failure;
    try {
        co_await libraryRepository_.deleteLibrary(library);
    } catch (...) {
        failure = std::current_exception();
    }
    // If only the removal of its orphaned tracks failed, the library itself is gone all the same.
    if (library->isDeleted()) co_await forget(library, name);
    if (failure) std::rethrow_exception(failure);
}

Task<void> LibrariesFlow::forget(LibraryRef library, std::string name) {
    // A new library may have taken the name by now, and the grant with it.
    if (!context_.modelContext.findUnique<Library>("name", name)) {
        folderAccess_.stop(name);
        try {
            co_await folderAccess_.forget(name);
        } catch (const std::exception& error) {
            context_.crashReporter.recordError(error); // a grant too many does no harm
        }
    }
    co_await loading_.forget(library);
}

Task<void> LibrariesFlow::rollBack(LibraryRef library, std::vector<TrackRef> affected, std::string localError,
                                   std::int64_t removedAtBackend) {
    const auto service = sync_.service();
    log::line("⚠️ [VM] Local deletion failed after backend deletion - attempting rollback");
    try {
        co_await service->syncLibrary(library);
        std::erase_if(affected, [](const TrackRef& track) { return track->isDeleted(); });
        if (!affected.empty() && !library->isDeleted()) co_await service->syncTracks(library, affected);
        log::line("✅ [VM] Rollback successful - library restored to backend");
        state_.errorMessage = "Failed to delete library locally, but it has been restored: " + localError;
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        log::line("❌ [VM] Rollback failed - backend and local are now out of sync!");
        state_.errorMessage = "Critical: Library deletion failed. Backend deleted " +
                              std::to_string(removedAtBackend) +
                              " tracks but local copy remains. Please contact support.";
    }
    // The upload is not saved, so it does not count: the next sync sends the tracks once more.
    for (const TrackRef& track : affected)
        if (!track->isDeleted()) track->edit().lastSyncedAt = std::nullopt;
}

Task<bool> LibrariesFlow::relocate(LibraryRef library, std::filesystem::path folder) {
    using Case = LibraryCreationError::Case;
    const BackgroundTasks::Pass awaited = context_.background.enter();
    const ScanningFlow::Hold unscanned = co_await scanning_.hold(library);
    if (library->isDeleted()) co_return false;
    const std::string name = library->name;
    std::vector<std::string> known;
    for (const FileItemRef& file : library->files)
        known.push_back(file->relPath);
    GrantedFolder found;
    bool isItsFolder = false;
    try {
        const auto looking = [&] {
            found = granted(folder);
            isItsFolder = known.empty() || holdsAny(found.path.string(), known);
        };
        co_await offload(context_.executors, looking);
    } catch (const FolderGrantError& error) {
        throw creationError(error);
    }
    if (!isItsFolder) throw LibraryCreationError(Case::holdsNoneOfItsFiles);
    if (library->isDeleted()) co_return false;
    try {
        co_await libraryRepository_.relocateLibrary(library, found.path.string());
        co_await folderAccess_.keep(name, std::move(found.grant));
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        state_.errorMessage = "Failed to relocate library: " + describe(error);
        co_return false;
    }
    if (auto refused = co_await folderAccess_.restore(library)) state_.errorMessage = std::move(refused);
    co_return !library->isDeleted();
}

Task<std::optional<std::size_t>> LibrariesFlow::forgetMissing(LibraryRef library) {
    const BackgroundTasks::Pass awaited = context_.background.enter();
    const ScanningFlow::Hold unscanned = co_await scanning_.hold(library);
    if (library->isDeleted()) co_return std::nullopt;
    std::vector<FileItemRef> missing = missingFilesOf(library);
    const std::size_t count = missing.size();
    std::vector<std::pair<TrackRef, std::string>> tracks;
    for (const FileItemRef& file : missing)
        if (file->track) tracks.emplace_back(file->track, file->track->canonicalSig);
    try {
        co_await libraryRepository_.forgetFiles(std::move(missing));
    } catch (const std::exception& error) {
        context_.crashReporter.recordError(error);
        state_.errorMessage = "Failed to forget missing files: " + describe(error);
        co_return std::nullopt;
    }
    std::vector<std::string> gone;
    for (const auto& [track, signature] : tracks)
        if (track->isDeleted()) gone.push_back(signature);
    std::sort(gone.begin(), gone.end());
    gone.erase(std::unique(gone.begin(), gone.end()), gone.end());
    if (library->isDeleted()) co_return count;
    if (state_.selectedLibrary.get() == library) co_await loading_.loadTracksForSelectedLibrary();
    if (!gone.empty()) sync_.startAfterScan(library, std::move(gone));
    co_return count;
}

Task<void> LibrariesFlow::clearLocalData() {
    log::line("🗑️ [AUTH] Clearing all local data for signout...");
    const BackgroundTasks::Pass awaited = context_.background.enter();
    ++clearings_;
    const ScanningFlow::Hold unscanned = co_await scanning_.holdAll();
    const Gate::Pass alone = co_await creations_.enter(); // a library added meanwhile would stay unseen
    try {
        std::vector<model::Ref<model::Object>> all;
        co_await addAll<Library>(context_.modelContext, all);
        co_await addAll<Track>(context_.modelContext, all);
        co_await addAll<Playlist>(context_.modelContext, all);
        co_await addAll<PlaylistFolder>(context_.modelContext, all);
        co_await model::removeInBackground(context_.modelContext, context_.executors, std::move(all));
        loading_.clear();
        log::line("✅ [AUTH] Successfully cleared all local data");
    } catch (const std::exception& error) {
        log::line("❌ [AUTH] Failed to clear local data: {}", describe(error));
        state_.errorMessage = "Warning: Failed to clear local data on signout: " + describe(error);
    }
}

} // namespace velto
