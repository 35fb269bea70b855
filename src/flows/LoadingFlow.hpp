#pragma once

#include "flows/FlowContext.hpp"

#include <cstdint>
#include <functional>
#include <vector>

namespace velto {

class FolderAccess;
class LibraryRepository;

/// What is on show: loads the lists, selects a library, keeps `tracks` what the selected library holds.
/// Writes libraries, selectedLibrary, viewMode, tracks, isLoading, playlists, playlistFolders and
/// selectedTracks.
class LoadingFlow {
  public:
    LoadingFlow(const FlowContext& context, LibraryRepository& libraryRepository, FolderAccess& folderAccess);

    /// Loads libraries, playlists and the tracks of the selected library, the first one if none is selected.
    /// `startBackgroundWork` is called once all of that is on show; not if the libraries cannot be loaded.
    Task<void> load(std::function<void()> startBackgroundWork);

    /// Shows the library; nothing if it is deleted.
    Task<void> select(LibraryRef library);

    Task<void> loadTracksForSelectedLibrary();

    /// The tracks of the library's files, in the files' order, one a file: a song with two files comes twice.
    Task<std::vector<TrackRef>> getAllTracksForLibrary(LibraryRef library);

    /// Lists the libraries anew and selects that one. Throws the store's errors.
    Task<void> listAndSelect(LibraryRef library);

    /// Takes a deleted library, and the selected tracks that went with it, off what is shown.
    Task<void> forget(LibraryRef library);

    /// Empties everything: all of it is deleted.
    void clear();

    void showTracks(std::vector<TrackRef> next);

  private:
    void loadPlaylists();
    void dropDeletedSelection();

    FlowContext context_;
    MainScreenState& state_;
    LibraryRepository& libraryRepository_;
    FolderAccess& folderAccess_;
    std::uint64_t selections_ = 0; ///< how often select was called
};

} // namespace velto
