#pragma once

#include "flows/FlowContext.hpp"
#include "platform/concurrency/Gate.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace velto {

class FolderAccess;
class LibraryRepository;
class LoadingFlow;
class ScanningFlow;
class SyncFlow;

/// Libraries come and go: added with the grant of their folder, deleted at the backend and here, or all
/// cleared at a sign-out.
class LibrariesFlow {
  public:
    LibrariesFlow(const FlowContext& context, LibraryRepository& libraryRepository,
                  FolderAccess& folderAccess, LoadingFlow& loading, ScanningFlow& scanning, SyncFlow& sync);

    /// Checks the folder and the name, creates the library, keeps the folder's grant and shows the library;
    /// null if that failed, which is shown. The folder is kept as its real path, without links, dots and a
    /// slash at its end. One after the other, however many are asked for at once; a sign-out that comes first
    /// ends it quietly. Throws LibraryCreationError: what the user has to choose anew.
    Task<LibraryRef> add(std::string name, std::filesystem::path folder,
                         std::optional<std::string> includeGlob, std::optional<std::string> excludeGlob);

    /// Makes a library of a folder that is granted already, and shows it; null if that failed, which is
    /// shown. Throws LibraryCreationError: no name, no folder, or a name that a library of another folder
    /// has.
    Task<LibraryRef> create(std::string name, std::string rootPath, std::optional<std::string> includeGlob,
                            std::optional<std::string> excludeGlob);

    /// At the backend first; a failure here restores it there. Stops a scan of this library, and of no other.
    /// Nothing happens if it is deleted or being deleted.
    Task<void> remove(LibraryRef library);

    /// The library's folder is another one now (its drive is mounted elsewhere, say): grant, root and the
    /// files' paths follow, and nothing counts as new. False if that failed, which is shown, or if the
    /// library went meanwhile. Stops a scan of it. Throws LibraryCreationError if the folder is none, may not
    /// be read, or has no file that the library knows.
    Task<bool> relocate(LibraryRef library, std::filesystem::path folder);

    /// Deletes the records of the library's missing files, and with them the tracks that have no other file,
    /// here and at the backend. How many records; none if that failed, which is shown.
    Task<std::optional<std::size_t>> forgetMissing(LibraryRef library);

    /// Deletes everything, as at a sign-out. Grants stay.
    Task<void> clearLocalData();

  private:
    struct NewLibrary;

    Task<void> checkName(std::string name, std::string rootPath);
    Task<LibraryRef> createAlone(NewLibrary wanted);
    Task<void> removeEverywhere(LibraryRef library);
    Task<void> removeLocally(LibraryRef library);
    Task<void> forget(LibraryRef library, std::string name);
    Task<void> rollBack(LibraryRef library, std::vector<TrackRef> affected, std::string localError,
                        std::int64_t removedAtBackend);

    FlowContext context_;
    MainScreenState& state_;
    LibraryRepository& libraryRepository_;
    FolderAccess& folderAccess_;
    LoadingFlow& loading_;
    ScanningFlow& scanning_;
    SyncFlow& sync_;
    Gate creations_; ///< of two adds of one name the second finds the first one's library; also a sign-out's
    std::unordered_set<LibraryRef> beingRemoved_;
    std::uint64_t clearings_ = 0; ///< how often clearLocalData was called: an add that it meets ends by it
};

} // namespace velto
