#include "app/VeltoApp.hpp"

#include "backend/BackendAddress.hpp"
#include "backend/DefaultTaggingService.hpp"
#include "backend/LoopbackCallback.hpp"
#include "backend/TokensOfBackends.hpp"
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

VeltoApp::VeltoApp(VeltoAppConfiguration configuration, std::unique_ptr<model::ModelContainer> container)
    : configuration_(std::move(configuration))
    , crashReporter_(configuration_.home.crashReports)
    , sharedModelContainer_(std::move(container))
    , rewriteJournal_(configuration_.home.rewrites)
    , settings_(configuration_.home.settings, configuration_.executors)
    , taggingJournal_(configuration_.home.data, configuration_.executors) {
    sharedModelContainer_->mainContext().deliverChangesThrough(
        [main = configuration_.executors.main](std::function<void()> work) {
            asio::post(main, std::move(work));
        });
}

Task<std::unique_ptr<VeltoApp>> VeltoApp::launch(VeltoAppConfiguration configuration) {
    // The store first: its lock says that no other process works on this home.
    const auto opening = [&home = configuration.home] { return openStore(home); };
    auto container = co_await offload(configuration.executors.store, opening);
    std::unique_ptr<VeltoApp> app(new VeltoApp(std::move(configuration), std::move(container)));
    co_await app->prepare();
    app->compose();
    co_return app;
}

Task<void> VeltoApp::prepare() {
    // Both may take seconds: a large file to look at, a process to wait for.
    const auto recovering = [this] { recoverInterruptedRewrites(rewriteJournal_, crashReporter_); };
    try {
        co_await offload(configuration_.executors, recovering);
    } catch (const std::exception& error) { // the next start, or the next write to such a file, tries again
        log::line("❌ [APP] Failed to recover interrupted rewrites: {}", describe(error));
        crashReporter_.recordError(error);
    }
    backendAddress_ = configuration_.backendAddress.value_or(std::string(productBackendAddress));
    while (backendAddress_.ends_with('/'))
        backendAddress_.pop_back();
    if (backendAddress_.empty() && configuration_.needsBackend) co_await startLocalBackend();
}

Task<void> VeltoApp::startLocalBackend() {
    const auto starting = [this] {
        localBackend_ = std::make_unique<LocalBackend>(configuration_.home.backendState);
    };
    try {
        co_await offload(configuration_.executors, starting);
        backendAddress_ = localBackend_->address();
        localTransport_ =
            std::make_unique<LocalBackendTransport>(transport_, *localBackend_, configuration_.executors);
    } catch (const std::exception& error) {
        log::line("❌ [BACKEND] {}", describe(error));
        crashReporter_.recordError(error);
        backendFailure_ = describe(error);
    }
}

bool VeltoApp::isDefaultBackend() const {
    const std::string given = configuration_.backendAddress.value_or("");
    return given.empty() || backendName(given) == backendName(productBackendAddress);
}

std::string VeltoApp::environment() const {
    if (localBackend_) return "local backend, started by this program (" + backendAddress_ + ")";
    if (backendAddress_.empty()) return "no backend";
    return isDefaultBackend() ? "Production (RELEASE build)" : "backend at " + backendName(backendAddress_);
}

std::shared_ptr<KeyringService> VeltoApp::tokenOf(const std::string& backend) const {
    if (configuration_.keyring) return std::make_shared<TokenInList>(configuration_.keyring, backend);
    const std::string account = keyringAccountName;
    return std::make_shared<SecretServiceKeyring>(keyringServiceName,
                                                  backend.empty() ? account : account + " " + backend);
}

/// The product's token is the keyring's item without a backend's name; every other backend's has its name.
/// That of the program's own local backend is its state, since its port is another each time.
std::shared_ptr<KeyringService> VeltoApp::makeKeyring() const {
    if (!isDefaultBackend()) return tokenOf(backendName(*configuration_.backendAddress));
    const bool hasProduct = !productBackendAddress.empty();
    if (hasProduct && !configuration_.keyring) return tokenOf("");
    const std::string own = hasProduct ? backendName(productBackendAddress)
                                       : "local:" + configuration_.home.backendState.string();
    return std::make_shared<InheritedToken>(tokenOf(own), tokenOf(""));
}

void VeltoApp::compose() {
    keyring_ = makeKeyring();
    log::line("🌐 API Environment: {}", environment());
    authClient_ = makeClient();
    authManager_ = std::make_shared<DefaultAuthenticationManager>(
        AuthenticationServices{.keyringService = *keyring_,
                               .graphQLClient = *authClient_,
                               .clock = configuration_.clock,
                               .crashReporter = crashReporter_,
                               .browser = configuration_.browser,
                               .preferences = UserPreferencesStore::shared(),
                               .executors = configuration_.executors,
                               .webAddress = backendAddress_,
                               .environment = environment()});
    finishLaunching();
}

VeltoApp::~VeltoApp() = default;

std::shared_ptr<GraphQLClient> VeltoApp::makeClient() {
    http::Transport& transport =
        localTransport_ ? static_cast<http::Transport&>(*localTransport_) : transport_;
    return std::make_shared<DefaultGraphQLClient>(backendAddress_ + endpointPath,
                                                  keyringTokenSource(*keyring_, configuration_.executors),
                                                  transport, crashReporter_);
}

void VeltoApp::finishLaunching() {
    log::line("🚀 [APP] Application finished launching");
    log::line("✅ [CRASH] Error records stay on this computer: {}", configuration_.home.crashReports.string());
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
    log::line("🌐 API Environment: {}", environment());
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

/// What the browser or the user brings first; main actor.
struct VeltoApp::PendingSignIn {
    explicit PendingSignIn(const Executor& main)
        : isBrought(main)
        , isAnswered(main) {}

    Event isBrought;  ///< a token from the browser, or the user's answer
    Event isAnswered; ///< the question has ended
    CancellationToken notNeeded;
    std::optional<std::string> token;
    std::optional<std::string> link;
    std::exception_ptr failure;
    std::unique_ptr<LoopbackCallback> callback;

    static Task<void> ask(std::shared_ptr<PendingSignIn> pending, AskForLink askForLink) {
        try {
            pending->link = co_await askForLink(pending->notNeeded);
        } catch (const std::exception&) {
            pending->failure = std::current_exception();
        }
        pending->isAnswered.set();
        pending->isBrought.set();
    }
};

Task<SignInEnd> VeltoApp::signIn(AskForLink askForLink) {
    const Executor main = configuration_.executors.main;
    const auto pending = std::make_shared<PendingSignIn>(main);
    std::string returnAddress;
    if (isOnThisComputer(backendAddress_)) {
        const auto take = [main, weak = std::weak_ptr(pending)](std::string token) {
            asio::post(main, [weak, brought = std::move(token)] {
                const auto waiting = weak.lock();
                if (!waiting) return;
                waiting->token = brought;
                waiting->isBrought.set();
            });
        };
        try {
            pending->callback = std::make_unique<LoopbackCallback>(take);
            returnAddress = pending->callback->returnAddress();
        } catch (const std::exception& error) { // the link can be pasted
            log::line("⚠️ [SIGN-IN] The browser cannot bring the token back: {}", describe(error));
        }
    }
    const auto manager = authManager_;
    bool isOpened = true; // an error may have been on show before
    Subscription watching = manager->authenticationState().subscribe(
        [&isOpened](const AuthenticationState& state) { isOpened = !state.isError(); });
    if (returnAddress.empty())
        co_await manager->signIn();
    else
        co_await manager->signInReturningTo(returnAddress);
    watching = {};
    if (!isOpened) co_return SignInEnd::finished;
    spawn(main, PendingSignIn::ask(pending, std::move(askForLink)));
    co_await pending->isBrought.wait();
    pending->notNeeded.cancel();
    co_await pending->isAnswered.wait();
    freeOn(configuration_.executors.pool, std::move(pending->callback));
    co_return co_await finishSignIn(pending);
}

Task<SignInEnd> VeltoApp::finishSignIn(std::shared_ptr<PendingSignIn> pending) {
    if (pending->token) {
        configuration_.browser.activateApplication();
        const auto manager = authManager_;
        co_await manager->handleAuthCallback(*pending->token);
        co_return SignInEnd::finished;
    }
    if (pending->failure) std::rethrow_exception(pending->failure);
    if (!pending->link) co_return SignInEnd::cancelled;
    const bool isLink = co_await handleURLCallback(*pending->link);
    co_return isLink ? SignInEnd::finished : SignInEnd::notALink;
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
