#include "app/MainScreenViewModel.hpp"

#include "backend/AuthenticationManager.hpp"
#include "backend/LibrarySyncService.hpp"
#include "backend/TaggingService.hpp"
#include "flows/FolderAccess.hpp"
#include "flows/LibrariesFlow.hpp"
#include "flows/LoadingFlow.hpp"
#include "flows/SessionFlow.hpp"
#include "flows/SyncFlow.hpp"
#include "flows/TaggingFlow.hpp"
#include "flows/TaggingJournal.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "tagwriting/MetadataWriter.hpp"

namespace velto {

std::shared_ptr<MainScreenViewModel> MainScreenViewModel::create(const MainScreenServices& services) {
    const std::shared_ptr<MainScreenViewModel> made(new MainScreenViewModel(services));
    made->owner_ = made;
    return made;
}

MainScreenViewModel::MainScreenViewModel(const MainScreenServices& services)
    : services_(services)
    , background_(services.executors.main)
    , context_{services_.executors, services_.clock, services_.crashReporter, services_.modelContext, *this,
               background_,         owner_} {
    assertMainActor();
    log::line("🏗️ [VIEWMODEL] MainScreenViewModel initializing...");
    auto& context = services_.modelContext;
    libraryRepository_ = std::make_shared<LibraryRepository>(context, services_.clock, services_.executors);
    metadataWriter_ = services_.metadataWriter
                          ? services_.metadataWriter
                          : std::make_shared<SimpleMetadataWriter>(
                                services_.executors, services_.crashReporter, services_.rewriteJournal);
    const ScannerDependencies dependencies{
        .metadataExtractor = std::make_shared<SimpleMetadataExtractor>(services_.crashReporter),
        .signatureGenerator = std::make_shared<SHA256SignatureGenerator>(),
        .filesystemScanner = std::make_shared<SimpleFilesystemScanner>(),
        .libraryRepository = libraryRepository_,
        .scanRunRepository =
            std::make_shared<ScanRunRepository>(context, services_.clock, services_.executors),
    };
    scanner_ =
        std::make_unique<ConcurrentScanner>(dependencies, context, services_.genreTextParser,
                                            services_.executors, services_.clock, services_.crashReporter);
    folderAccess_ =
        std::make_unique<FolderAccess>(services_.folderGrants, services_.settings, services_.executors);
    loading_ = std::make_unique<LoadingFlow>(context_, *libraryRepository_, *folderAccess_);
    sync_ = std::make_unique<SyncFlow>(context_);
    scanning_ = std::make_unique<ScanningFlow>(context_, *scanner_, *loading_, *folderAccess_, *sync_);
    libraries_ = std::make_unique<LibrariesFlow>(context_, *libraryRepository_, *folderAccess_, *loading_,
                                                 *scanning_, *sync_);
    session_ = std::make_unique<SessionFlow>(context_, *libraries_);
    const auto reload = [this] { return loading_->loadTracksForSelectedLibrary(); };
    tagging_ = std::make_unique<TaggingFlow>(context_, *metadataWriter_, services_.taggingJournal, *sync_,
                                             *session_, reload);
    log::line("✅ [VIEWMODEL] MainScreenViewModel initialized");
}

MainScreenViewModel::~MainScreenViewModel() = default;

void MainScreenViewModel::setUp(BackendServices services) {
    tagging_->setService(std::move(services.taggingService));
    sync_->setService(std::move(services.librarySyncService));
    session_->setManager(std::move(services.authManager));
}

// Each operation is a coroutine of its own that holds the state object to its end.

Task<void> MainScreenViewModel::loadData() {
    const auto self = shared_from_this();
    const auto startBackgroundWork = [this] {
        if (!services_.checksAtLoad) return;
        std::vector<LibraryRef> scanned;
        for (const LibraryRef& library : libraries.get())
            if (library->lastScanFinishedAt) scanned.push_back(library);
        scanning_->startCheck(std::move(scanned));
        sync_->startAtLaunch(libraries);
    };
    try {
        co_await services_.taggingJournal.reportLeftOvers();
    } catch (const std::exception& error) { // the batches stay named for the next start
        services_.crashReporter.recordError(error);
    }
    co_await loading_->load(startBackgroundWork);
}

Task<void> MainScreenViewModel::selectLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    co_await loading_->select(std::move(library));
}

Task<void> MainScreenViewModel::loadTracksForSelectedLibrary() {
    const auto self = shared_from_this();
    co_await loading_->loadTracksForSelectedLibrary();
}

Task<void> MainScreenViewModel::restoreAccess(LibraryRef library) {
    const auto self = shared_from_this();
    if (auto refused = co_await folderAccess_->restore(std::move(library))) errorMessage = std::move(refused);
}

Task<std::vector<TrackRef>> MainScreenViewModel::getAllTracksForLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    co_return co_await loading_->getAllTracksForLibrary(std::move(library));
}

Task<LibraryRef> MainScreenViewModel::addLibrary(std::string name, std::filesystem::path folder,
                                                 std::optional<std::string> includeGlob,
                                                 std::optional<std::string> excludeGlob) {
    const auto self = shared_from_this();
    co_return co_await libraries_->add(std::move(name), std::move(folder), std::move(includeGlob),
                                       std::move(excludeGlob));
}

Task<LibraryRef> MainScreenViewModel::createLibrary(std::string name, std::string rootPath,
                                                    std::optional<std::string> includeGlob,
                                                    std::optional<std::string> excludeGlob) {
    const auto self = shared_from_this();
    co_return co_await libraries_->create(std::move(name), std::move(rootPath), std::move(includeGlob),
                                          std::move(excludeGlob));
}

Task<void> MainScreenViewModel::deleteLibrary(LibraryRef library) {
    const auto self = shared_from_this();
    co_await libraries_->remove(std::move(library));
}

Task<bool> MainScreenViewModel::relocateLibrary(LibraryRef library, std::filesystem::path folder) {
    const auto self = shared_from_this();
    co_return co_await libraries_->relocate(std::move(library), std::move(folder));
}

Task<std::optional<std::size_t>> MainScreenViewModel::forgetMissing(LibraryRef library) {
    const auto self = shared_from_this();
    co_return co_await libraries_->forgetMissing(std::move(library));
}

Task<void> MainScreenViewModel::clearLocalData() {
    const auto self = shared_from_this();
    co_await libraries_->clearLocalData();
}

Task<ScanOutcome> MainScreenViewModel::refreshSelectedLibrary(MissingFiles missing) {
    const auto self = shared_from_this();
    const LibraryRef library = selectedLibrary;
    if (!library) {
        log::line("🔴 [SCAN DEBUG] No library selected, aborting scan");
        co_return ScanOutcome{};
    }
    co_return co_await scanning_->scan(library, missing);
}

Task<ScanOutcome> MainScreenViewModel::scanAcceptingMissing(LibraryRef library) {
    const auto self = shared_from_this();
    co_return co_await scanning_->scan(std::move(library), MissingFiles::accept);
}

Task<void> MainScreenViewModel::checkForNewFiles(std::weak_ptr<MainScreenViewModel> viewModel,
                                                 std::vector<LibraryRef> checked) {
    ScanningFlow* flow = nullptr;
    if (const auto self = viewModel.lock()) flow = self->scanning_.get();
    if (flow != nullptr) co_await ScanningFlow::check(viewModel, flow, std::move(checked));
}

Task<std::optional<std::size_t>> MainScreenViewModel::countNewFiles(LibraryRef library) {
    const auto self = shared_from_this();
    co_return co_await scanning_->countNewFiles(std::move(library));
}

Task<std::optional<std::size_t>> MainScreenViewModel::scanForNewTracks(LibraryRef library) {
    const auto self = shared_from_this();
    co_return co_await scanning_->scanForNewTracks(std::move(library));
}

Task<void> MainScreenViewModel::cancelScan() {
    const auto self = shared_from_this();
    co_await scanning_->cancel();
}

Task<TaggingSummary> MainScreenViewModel::tagTracks(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    co_return co_await tagging_->tag(std::move(selection));
}

Task<TaggingSelection> MainScreenViewModel::tracksToTag(std::vector<TrackRef> chosen, TaggingWish wish) {
    const auto self = shared_from_this();
    LastRun lastRun;
    if (wish.failedOnly) lastRun = co_await services_.taggingJournal.lastRun();
    co_return co_await selectForTagging(std::move(chosen), wish, std::move(lastRun));
}

Task<void> MainScreenViewModel::markTracksAsTagged(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    co_await tagging_->markAsTagged(std::move(selection));
}

Task<ClearingSummary> MainScreenViewModel::clearTags(std::vector<TrackRef> selection) {
    const auto self = shared_from_this();
    co_return co_await tagging_->clear(std::move(selection));
}

void MainScreenViewModel::stopTagging() {
    tagging_->stop();
}

Task<std::int64_t> MainScreenViewModel::storeTagsNow() {
    const auto self = shared_from_this();
    co_return co_await tagging_->storeWhatIsThere();
}

Task<void> MainScreenViewModel::refreshCredits() {
    const auto self = shared_from_this();
    co_await session_->refreshCredits();
}

Task<void> MainScreenViewModel::signOut() {
    const auto self = shared_from_this();
    co_await session_->signOut();
}

Task<void> MainScreenViewModel::stopEverything() {
    const auto self = shared_from_this();
    tagging_->stop();
    sync_->stop();
    const ScanningFlow::Hold unscanned = co_await scanning_->holdAll();
    co_await tagging_->finished();
    co_await background_.finished();
}

Task<void> MainScreenViewModel::backgroundWorkFinished() {
    const auto self = shared_from_this();
    co_await background_.finished();
}

} // namespace velto
