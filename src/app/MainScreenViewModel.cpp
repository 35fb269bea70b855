#include "app/MainScreenViewModel.hpp"

#include "app/BackgroundTasks.hpp"
#include "backend/AuthenticationManager.hpp"
#include "backend/DefaultTaggingService.hpp"
#include "backend/GraphQLClient.hpp"
#include "platform/files/FolderGrants.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "store/StoreRepositories.hpp"
#include "tagwriting/MetadataWriter.hpp"

namespace velto {

std::shared_ptr<MainScreenViewModel> MainScreenViewModel::create(const MainScreenServices& services) {
    return std::shared_ptr<MainScreenViewModel>(new MainScreenViewModel(services));
}

MainScreenViewModel::MainScreenViewModel(const MainScreenServices& services)
    : services_(services)
    , modelContext_(services.modelContext)
    , background_(std::make_unique<BackgroundTasks>(services.executors.main)) {
    assertMainActor();
    log::line("🏗️ [VIEWMODEL] MainScreenViewModel initializing...");
    libraryRepository_ =
        std::make_shared<SwiftDataLibraryRepository>(modelContext_, services_.clock, services_.executors);
    trackRepository_ = std::make_shared<SwiftDataTrackRepository>(modelContext_, services_.genreTextParser,
                                                                  services_.executors);
    fileRepository_ =
        std::make_shared<SwiftDataFileRepository>(modelContext_, services_.clock, services_.executors);
    scanRunRepository_ =
        std::make_shared<SwiftDataScanRunRepository>(modelContext_, services_.clock, services_.executors);
    metadataWriter = std::make_shared<SimpleMetadataWriter>(services_.executors, services_.crashReporter,
                                                            services_.rewriteJournal);
    const ScannerDependencies dependencies{
        .metadataExtractor = std::make_shared<SimpleMetadataExtractor>(services_.crashReporter),
        .signatureGenerator = std::make_shared<SHA256SignatureGenerator>(),
        .filesystemScanner = std::make_shared<SimpleFilesystemScanner>(),
        .libraryRepository = libraryRepository_,
        .trackRepository = trackRepository_,
        .fileRepository = fileRepository_,
        .scanRunRepository = scanRunRepository_,
    };
    scanner =
        std::make_shared<ConcurrentScanner>(dependencies, modelContext_, services_.genreTextParser,
                                            services_.executors, services_.clock, services_.crashReporter);
    cancellables_.push_back(
        scanner->observableProgress().subscribe([this](const std::optional<ScanProgress>& progress) {
            if (runningScan_ && progress) scanProgress = progress;
        }));
    log::line("✅ [VIEWMODEL] MainScreenViewModel initialized");
}

MainScreenViewModel::~MainScreenViewModel() {
    for (const auto& [name, folder] : librarySecurityScopedURLs) {
        services_.folderGrants.stopAccessing(folder);
        log::line("🔓 Stopped accessing security-scoped resource for library '{}'", name);
    }
}

void MainScreenViewModel::setUp(std::shared_ptr<AuthenticationManager> manager,
                                const std::function<std::shared_ptr<GraphQLClient>()>& makeClient) {
    log::line("🌐 API Environment: Production (RELEASE build)");
    graphQLClient_ = makeClient();
    taggingService = std::make_shared<DefaultTaggingService>(*graphQLClient_, services_.crashReporter);
    authManager = std::move(manager);
    takeState(authManager->authenticationState());
    cancellables_.push_back(authManager->authenticationState().subscribe(
        [this](const AuthenticationState& state) { takeState(state); }));
}

void MainScreenViewModel::takeState(const AuthenticationState& state) {
    userSession = UserSession::from(state);
    isAuthenticating = state.isAuthenticating();
}

Task<void> MainScreenViewModel::backgroundWorkFinished() {
    const auto self = shared_from_this();
    co_await background_->finished();
}

Task<void> MainScreenViewModel::refreshCredits() {
    const auto self = shared_from_this();
    if (!authManager) co_return;
    try {
        co_await authManager->fetchUserProfile();
        takeState(authManager->authenticationState());
    } catch (const std::exception& error) {
        errorMessage = "Failed to refresh credits: " + describe(error);
    }
}

Task<void> MainScreenViewModel::signOut() {
    const auto self = shared_from_this();
    if (!authManager) co_return;
    co_await authManager->signOut();
    // A token that could not be deleted leaves the session, and so the data, as they were.
    if (!authManager->authenticationState().get().isUnauthenticated()) co_return;
    co_await clearLocalData();
}

void MainScreenViewModel::invalidateCache() {
    log::line("🗑️ [CACHE] Invalidated filteredTracks cache");
}

} // namespace velto
