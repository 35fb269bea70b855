#pragma once

#include "flows/FlowContext.hpp"
#include "flows/ScanningFlow.hpp"
#include "flows/TaggingSelection.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velto {

class AudioMetadataWriter;
class AuthenticationManager;
class ConcurrentScanner;
class FolderAccess;
class FolderGrants;
class GenreTextParser;
class LibrariesFlow;
class LibraryRepository;
class LibrarySyncService;
class LoadingFlow;
class RewriteJournal;
class SessionFlow;
class SyncFlow;
class TaggingFlow;
class TaggingJournal;
class TaggingService;
class ValueFile;

/// What the state object is made of. Everything referred to outlives it.
struct MainScreenServices {
    Executors executors;
    Clock& clock;
    CrashReporter& crashReporter;
    model::ModelContext& modelContext;
    ValueFile& settings;
    FolderGrants& folderGrants;
    RewriteJournal& rewriteJournal;
    TaggingJournal& taggingJournal;
    const GenreTextParser* genreTextParser; ///< null: no tags are recognised in a file's genre text
    std::shared_ptr<AudioMetadataWriter> metadataWriter = nullptr; ///< null: the program's own
    /// Whether loadData looks for new files and starts the launch sync. A face that ends after one operation
    /// switches it off.
    bool checksAtLoad = true;
};

/// What reaches the backend; each may be null.
struct BackendServices {
    std::shared_ptr<AuthenticationManager> authManager;
    std::shared_ptr<TaggingService> taggingService;
    std::shared_ptr<LibrarySyncService> librarySyncService;
};

/// The one central state object, and the one door for the faces: they read its fields and call its
/// operations, each of which belongs to one flow. Main actor only. The operations do not throw (but for the
/// LibraryCreationError of addLibrary, createLibrary and relocateLibrary): what goes wrong ends up as a text
/// in `errorMessage`. Long work runs elsewhere; each operation gives way while it waits, and keeps the state
/// object alive.
class MainScreenViewModel final : public MainScreenState,
                                  public std::enable_shared_from_this<MainScreenViewModel> {
  public:
    static std::shared_ptr<MainScreenViewModel> create(const MainScreenServices& services);
    ~MainScreenViewModel();
    MainScreenViewModel(const MainScreenViewModel&) = delete;
    MainScreenViewModel& operator=(const MainScreenViewModel&) = delete;

    /// Takes the backend's services and follows the authentication. Called right after creation.
    void setUp(BackendServices services);

    // Loading and selection.
    Task<void> loadData();
    Task<void> selectLibrary(LibraryRef library);
    Task<void> loadTracksForSelectedLibrary();
    /// Begins the use of a library's folder by its stored grant.
    Task<void> restoreAccess(LibraryRef library);
    /// The tracks of the library's files, in the files' order, one a file: a song with two files comes twice.
    Task<std::vector<TrackRef>> getAllTracksForLibrary(LibraryRef library);

    // Libraries: see LibrariesFlow.
    Task<LibraryRef> addLibrary(std::string name, std::filesystem::path folder,
                                std::optional<std::string> includeGlob,
                                std::optional<std::string> excludeGlob);
    Task<LibraryRef> createLibrary(std::string name, std::string rootPath,
                                   std::optional<std::string> includeGlob,
                                   std::optional<std::string> excludeGlob);
    Task<void> deleteLibrary(LibraryRef library);
    Task<bool> relocateLibrary(LibraryRef library, std::filesystem::path folder);
    Task<std::optional<std::size_t>> forgetMissing(LibraryRef library);
    Task<void> clearLocalData();

    // Scanning: see ScanningFlow.
    Task<ScanOutcome> refreshSelectedLibrary(MissingFiles missing = MissingFiles::ask);
    /// The answer yes to `missingQuestion`; the answer no is to clear it.
    Task<ScanOutcome> scanAcceptingMissing(LibraryRef library);
    /// Looks in each library's folder for files that the store does not know, and scans if there are any. The
    /// state object may go meanwhile.
    static Task<void> checkForNewFiles(std::weak_ptr<MainScreenViewModel> viewModel,
                                       std::vector<LibraryRef> checked);
    Task<std::optional<std::size_t>> countNewFiles(LibraryRef library);
    Task<std::optional<std::size_t>> scanForNewTracks(LibraryRef library);
    Task<void> cancelScan();

    // Tagging: see TaggingFlow.
    Task<TaggingSummary> tagTracks(std::vector<TrackRef> selection);
    /// What of the tracks that wish comes to, for a question before the run.
    Task<TaggingSelection> tracksToTag(std::vector<TrackRef> tracks, TaggingWish wish);
    Task<void> markTracksAsTagged(std::vector<TrackRef> selection);
    Task<ClearingSummary> clearTags(std::vector<TrackRef> selection);
    void stopTagging();
    /// For a program that must end at once: saves the tags that have come; the number of tracks whose tags
    /// may have been paid for and are lost.
    Task<std::int64_t> storeTagsNow();

    // Session.
    Task<void> refreshCredits();
    Task<void> signOut();

    /// For the end of the program: asks everything that runs to stop, and waits until it has, with what it
    /// saves. Adds and deletions under way go to their end, so that they leave nothing half done.
    Task<void> stopEverything();
    /// Waits until nothing that was started in the background is under way, and no add and no deletion.
    Task<void> backgroundWorkFinished();

  private:
    explicit MainScreenViewModel(const MainScreenServices& services);

    MainScreenServices services_;
    std::weak_ptr<void> owner_; ///< this, for the flows
    BackgroundTasks background_;
    FlowContext context_;
    std::shared_ptr<LibraryRepository> libraryRepository_;
    std::shared_ptr<AudioMetadataWriter> metadataWriter_;
    std::unique_ptr<ConcurrentScanner> scanner_;
    // Each uses those above it.
    std::unique_ptr<FolderAccess> folderAccess_;
    std::unique_ptr<LoadingFlow> loading_;
    std::unique_ptr<SyncFlow> sync_;
    std::unique_ptr<ScanningFlow> scanning_;
    std::unique_ptr<LibrariesFlow> libraries_;
    std::unique_ptr<SessionFlow> session_;
    std::unique_ptr<TaggingFlow> tagging_;
};

} // namespace velto
