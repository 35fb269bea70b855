#pragma once

#include "flows/TaggingState.hpp"
#include "flows/UserSession.hpp"
#include "platform/concurrency/Published.hpp"
#include "scanning/ScanProgress.hpp"
#include "store/Entities.hpp"

#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

namespace velto {

/// What the main area shows: the selected library, or a playlist.
struct LibraryView {};

using ViewMode = std::variant<LibraryView, PlaylistRef>;

/// A scan did not go on, because most files of the library were not found. Scanning again with
/// MissingFiles::accept marks them as missing.
struct MissingQuestion {
    LibraryRef library;
    std::string text; ///< the error's
};

/// What the faces see: every field is observable, and assigning one says so. Each field has one flow that
/// writes it, but for `errorMessage`, which is for showing and is never read back to decide anything. Main
/// actor only.
struct MainScreenState {
    Published<std::vector<LibraryRef>> libraries; ///< sorted by name
    Published<std::vector<TrackRef>> tracks;      ///< of the selected library, one a file
    Published<bool> isLoading{false};
    Published<std::optional<std::string>> errorMessage;
    Published<std::optional<ScanProgress>> scanProgress;        ///< present exactly while a scan runs
    Published<std::optional<MissingQuestion>> missingQuestion;  ///< until that library's next scan begins
    Published<std::optional<TaggingProgress>> taggingProgress;  ///< present while tagging runs
    Published<std::optional<TaggingProgress>> clearingProgress; ///< present while clearTags runs
    Published<bool> isShowingAddLibrary{false};
    Published<std::vector<PlaylistRef>> playlists;
    Published<std::vector<PlaylistFolderRef>> playlistFolders;
    Published<ViewMode> viewMode;
    Published<LibraryRef> selectedLibrary;
    Published<UserSession> userSession;
    Published<bool> isAuthenticating{false};
    Published<std::unordered_set<TrackRef>> selectedTracks;
    Published<std::set<model::PersistentIdentifier>> tracksBeingTagged;
};

} // namespace velto
