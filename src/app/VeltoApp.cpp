#include "app/VeltoApp.hpp"

#include "backend/DefaultTaggingService.hpp"
#include "backend/URLCallback.hpp"
#include "platform/http/Url.hpp"
#include "platform/keyring/SecretServiceKeyring.hpp"
#include "platform/log/Log.hpp"
#include "store/Entities.hpp"
#include "tagwriting/MetadataWriter.hpp"

namespace velto {

namespace {

constexpr auto keyringServiceName = "com.velto.desktop";
constexpr auto keyringAccountName = "jwt_token";
constexpr auto endpointPath = "/api/graphql";

std::unique_ptr<model::ModelContainer> openStore(const Home& home) {
    try {
        return model::ModelContainer::create(storeSchema(), model::ModelConfiguration{home.store});
    } catch (const std::exception& error) {
        throw Error("Could not create ModelContainer: " + describe(error));
    }
}

} // namespace

VeltoApp::VeltoApp(VeltoAppConfiguration configuration)
    : configuration_(std::move(configuration))
    , crashReporter_(configuration_.home.crashReports)
    // The store first: its lock says that no other process works on this home.
    , sharedModelContainer_(openStore(configuration_.home))
    , rewriteJournal_(configuration_.home.rewrites)
    , settings_(configuration_.home.settings, configuration_.executors)
    , taggingJournal_(configuration_.home.data, configuration_.executors) {
    sharedModelContainer_->mainContext().deliverChangesThrough(
        [main = configuration_.executors.main](std::function<void()> work) {
            asio::post(main, std::move(work));
        });
}

Task<std::unique_ptr<VeltoApp>> VeltoApp::launch(VeltoAppConfiguration configuration) {
    std::unique_ptr<VeltoApp> app(new VeltoApp(std::move(configuration)));
    co_await app->prepare();
    app->compose();
    co_return app;
}

Task<void> VeltoApp::prepare() {
    // Both may take seconds: a large file to look at, a process to wait for.
    const auto recovering = [this] { recoverInterruptedRewrites(rewriteJournal_, crashReporter_); };
    co_await offload(configuration_.executors, recovering);
    backendAddress_ = configuration_.backendAddress.value_or(std::string(productBackendAddress));
    while (backendAddress_.ends_with('/'))
        backendAddress_.pop_back();
    if (!backendAddress_.empty() || !configuration_.needsBackend) co_return;
    const auto starting = [this] {
        localBackend_.emplace(LocalBackend::start(configuration_.home.backendState));
    };
    try {
        co_await offload(configuration_.executors, starting);
        backendAddress_ = localBackend_->address();
    } catch (const std::exception& error) {
        log::line("❌ [BACKEND] {}", describe(error));
        crashReporter_.recordError(error);
        backendFailure_ = describe(error);
    }
}

void VeltoApp::compose() {
    keyring_ = configuration_.keyring
                   ? configuration_.keyring
                   : std::make_shared<SecretServiceKeyring>(keyringServiceName, keyringAccountName);
    log::line("🌐 API Environment: Production (RELEASE build)");
    authClient_ = makeClient();
    authManager_ = std::make_shared<DefaultAuthenticationManager>(
        AuthenticationServices{.keyringService = *keyring_,
                               .graphQLClient = *authClient_,
                               .clock = configuration_.clock,
                               .crashReporter = crashReporter_,
                               .browser = configuration_.browser,
                               .preferences = UserPreferencesStore::shared(),
                               .executors = configuration_.executors,
                               .webAddress = backendAddress_});
    finishLaunching();
}

VeltoApp::~VeltoApp() = default;

std::shared_ptr<GraphQLClient> VeltoApp::makeClient() {
    return std::make_shared<DefaultGraphQLClient>(backendAddress_ + endpointPath,
                                                  keyringTokenSource(*keyring_, configuration_.executors),
                                                  transport_, crashReporter_);
}

void VeltoApp::finishLaunching() {
    log::line("🚀 [APP] Application finished launching");
    log::line("✅ [FIREBASE] Crashlytics enabled for production");
}

UpdateManager& VeltoApp::updateManager() {
    if (!updateManager_) updateManager_ = std::make_unique<LoggingUpdateManager>();
    return *updateManager_;
}

std::shared_ptr<MainScreenViewModel> VeltoApp::viewModel() {
    if (viewModel_) return viewModel_;
    viewModel_ = MainScreenViewModel::create({.executors = configuration_.executors,
                                              .clock = configuration_.clock,
                                              .crashReporter = crashReporter_,
                                              .modelContext = sharedModelContainer_->mainContext(),
                                              .settings = settings_,
                                              .folderGrants = folderGrants_,
                                              .rewriteJournal = rewriteJournal_,
                                              .taggingJournal = taggingJournal_,
                                              .genreTextParser = &genreTextParser_,
                                              .checksAtLoad = configuration_.checksAtLoad});
    log::line("🌐 API Environment: Production (RELEASE build)");
    taggingClient_ = makeClient();
    viewModel_->setUp(
        {.authManager = authManager_,
         .taggingService = std::make_shared<DefaultTaggingService>(*taggingClient_, crashReporter_),
         .librarySyncService = nullptr});
    return viewModel_;
}

void VeltoApp::openBillingPage() {
    const std::string address = backendAddress_ + "/dashboard/billing";
    const auto url = http::Url::parse(address);
    if (!url || !url->isWeb()) throw Error("Invalid billing URL");
    configuration_.browser.openURL(address);
}

Task<bool> VeltoApp::handleURLCallback(std::string url) {
    const auto token = tokenFromCallback(url);
    if (!token) co_return false;
    log::line("🔗 [URL CALLBACK] Activating app window");
    configuration_.browser.activateApplication();
    log::line("🔗 [URL CALLBACK] Calling authManager.handleAuthCallback");
    const auto manager = authManager_;
    co_await manager->handleAuthCallback(*token);
    log::line("✅ [URL CALLBACK] Auth callback completed");
    co_return true;
}

} // namespace velto
