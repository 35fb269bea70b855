#pragma once

#include "app/TaggingState.hpp"
#include "app/UserSession.hpp"
#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Published.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "platform/model/ModelContext.hpp"
#include "scanning/Scanner.hpp"
#include "store/Entities.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

namespace velto {

class AudioMetadataWriter;
class AuthenticationManager;
class BackgroundTasks;
class ConcurrentScanner;
class CrashReporter;
class FileRepository;
class FolderGrants;
class GenreTextParser;
class GraphQLClient;
class LibraryRepository;
class LibrarySyncService;
class RewriteJournal;
class ScanRunRepository;
class TaggingService;
class TrackRepository;
struct TrackTags;
class UserDefaults;

/// What the main area shows: the selected library, or a playlist.
struct LibraryView {};

using ViewMode = std::variant<LibraryView, PlaylistRef>;

/// What the state object stands on. Everything referred to outlives it.
struct MainScreenServices {
    Executors executors;
    Clock& clock;
    CrashReporter& crashReporter;
    model::ModelContext& modelContext;
    UserDefaults& userDefaults;
    FolderGrants& folderGrants;
    RewriteJournal& rewriteJournal;
    const GenreTextParser* genreTextParser; ///< null: no tags are recognised in a file's genre text
    /// Whether loadData looks for new files and starts the launch sync. A face that ends after one operation
    /// switches it off.
    bool checksAtLoad = true;
};

/// The one central state object: every face reads it and calls its operations. Main actor only. Its
/// operations do not throw (but for addLibrary's LibraryCreationError): what goes wrong ends up as a text in
/// `errorMessage`. Long work runs elsewhere; each operation gives way where it waits. One source file a flow.
class MainScreenViewModel final : public std::enable_shared_from_this<MainScreenViewModel> {
  public:
    static std::shared_ptr<MainScreenViewModel> create(const MainScreenServices& services);
    ~MainScreenViewModel();
    MainScreenViewModel(const MainScreenViewModel&) = delete;
    MainScreenViewModel& operator=(const MainScreenViewModel&) = delete;

    /// Takes the shared authentication manager and builds the backend's services on the client that
    /// `makeClient` gives. Called once, right after creation.
    void setUp(std::shared_ptr<AuthenticationManager> manager,
               const std::function<std::shared_ptr<GraphQLClient>()>& makeClient);

    // State. Assigning a field tells its observers.
    Published<std::vector<LibraryRef>> libraries; ///< sorted by name
    Published<std::vector<TrackRef>> tracks;      ///< of the selected library, one a file
    Published<bool> isLoading{false};
    Published<std::optional<std::string>> errorMessage;
    Published<std::optional<ScanProgress>> scanProgress;        ///< present exactly while a scan runs
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
    std::shared_ptr<AuthenticationManager> authManager;
    std::shared_ptr<TaggingService> taggingService;
    std::shared_ptr<LibrarySyncService> librarySyncService;
    std::map<std::string, std::filesystem::path>
        librarySecurityScopedURLs; ///< access being held, by library name
    std::shared_ptr<AudioMetadataWriter> metadataWriter;
    std::shared_ptr<ConcurrentScanner> scanner;

    // Loading.
    Task<void> loadData();
    Task<void> selectLibrary(LibraryRef library);
    Task<void> loadTracksForSelectedLibrary();
    /// Begins the use of a library's folder by its stored grant.
    Task<void> restoreAccess(LibraryRef library);
    /// The tracks of the library's files, in the files' order, one a file: a song with two files comes twice.
    Task<std::vector<TrackRef>> getAllTracksForLibrary(LibraryRef library);

    // Libraries.
    /// Checks the folder and the name, creates the library and keeps the folder's grant. Throws
    /// LibraryCreationError; any other failure is told in errorMessage.
    Task<void> addLibrary(std::string name, std::filesystem::path folder,
                          std::optional<std::string> includeGlob, std::optional<std::string> excludeGlob);
    Task<void> createLibrary(std::string name, std::string rootPath, std::optional<std::string> includeGlob,
                             std::optional<std::string> excludeGlob);
    Task<void> deleteLibrary(LibraryRef library);
    Task<void> clearLocalData();

    // Scanning.
    /// Scans the selected library to its end, behind a cancelled scan that is still on its way out. The
    /// finished run, or null where the scan failed or was cancelled; `lastScanFailure` then holds why.
    Task<ScanRunRef> refreshSelectedLibrary();
    /// Looks in each library's folder for files that the store does not know, and scans where there are any.
    static Task<void> checkForNewFiles(std::weak_ptr<MainScreenViewModel> viewModel,
                                       std::vector<LibraryRef> checked);
    /// How many files of the library's folder the store does not know; nothing where the look failed.
    Task<std::optional<std::size_t>> countNewFiles(LibraryRef library);
    /// Scans the library where there are such files; how many there were, or nothing where the look failed.
    Task<std::optional<std::size_t>> scanForNewTracks(LibraryRef library);
    /// Asks a running scan to stop and waits for its end.
    Task<void> cancelScan();
    std::exception_ptr lastScanFailure; ///< of the latest scan; null where it succeeded

    // Tagging.
    Task<TaggingSummary> tagTracks(std::vector<TrackRef> selection);
    Task<void> markTracksAsTagged(std::vector<TrackRef> selection);
    /// How many files could not be written; the log says which.
    Task<std::int64_t> clearTags(std::vector<TrackRef> selection);

    // Session.
    Task<void> refreshCredits();
    Task<void> signOut();
    /// Waits until nothing that was started in the background is under way.
    Task<void> backgroundWorkFinished();

  private:
    struct TaggingRun;
    struct TaggingBatch;

    struct RunningScan {
        RunningScan(LibraryRef scanned, const Executor& main)
            : library(std::move(scanned))
            , finished(main) {}

        LibraryRef library;
        Event finished;
        bool isCancelled = false;
    };

    explicit MainScreenViewModel(const MainScreenServices& services);
    static std::string bookmarkKey(const std::string& libraryName);
    void takeState(const AuthenticationState& state);
    /// What a face derived from `tracks` is no longer current.
    static void invalidateCache();
    void showTracks(std::vector<TrackRef> next);
    void stopAccess(const std::string& libraryName);
    Task<void> loadPlaylists();

    static Task<void> syncAtLaunch(std::weak_ptr<MainScreenViewModel> weak, std::vector<LibraryRef> synced);
    static Task<void> syncAfterScan(std::shared_ptr<MainScreenViewModel> self, LibraryRef library);
    static Task<void> syncAfterTagging(std::weak_ptr<MainScreenViewModel> weak,
                                       std::shared_ptr<LibrarySyncService> service, LibraryRef library);
    Task<void> saveSyncTimestamps(std::string success);

    Task<ScanRunRef> scan(LibraryRef library);
    [[nodiscard]] std::shared_ptr<RunningScan> startedScan(const LibraryRef& library);
    Task<void> afterScan(LibraryRef library);

    Task<void> deleteLocally(LibraryRef library);
    Task<void> forgetLibrary(LibraryRef library, std::string name);
    Task<void> rollBackDeletion(LibraryRef library, std::vector<TrackRef> affected, std::string localError,
                                std::int64_t removedAtBackend);

    [[nodiscard]] Task<std::vector<TaggingBatch>> makeBatches(const std::vector<TrackRef>& selection) const;
    Task<void> runBatches(std::shared_ptr<TaggingRun> run);
    static Task<void> runBatch(std::shared_ptr<MainScreenViewModel> self, std::shared_ptr<TaggingRun> run,
                               std::size_t index);
    Task<void> tagBatch(std::shared_ptr<TaggingRun> run, std::size_t index);
    Task<void> applyTags(std::shared_ptr<TaggingRun> run, TrackRef track, TrackTags tags);
    void releaseBatch(const TaggingBatch& batch);
    void batchFailed(TaggingRun& run, std::size_t index, const std::exception& error);

    MainScreenServices services_;
    model::ModelContext& modelContext_;
    std::shared_ptr<LibraryRepository> libraryRepository_;
    std::shared_ptr<TrackRepository> trackRepository_;
    std::shared_ptr<FileRepository> fileRepository_;
    std::shared_ptr<ScanRunRepository> scanRunRepository_;
    std::vector<Subscription> cancellables_;
    std::shared_ptr<GraphQLClient> graphQLClient_;
    std::unique_ptr<BackgroundTasks> background_;
    std::shared_ptr<RunningScan> runningScan_; ///< null while none runs
    std::uint64_t selections_ = 0;             ///< how often selectLibrary was called
};

} // namespace velto
