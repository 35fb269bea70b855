#pragma once

#include "app/Home.hpp"
#include "app/LocalBackend.hpp"
#include "app/MainScreenViewModel.hpp"
#include "app/UpdateManager.hpp"
#include "backend/Browser.hpp"
#include "backend/DefaultAuthenticationManager.hpp"
#include "backend/DefaultGraphQLClient.hpp"
#include "backend/GenreTextMatching.hpp"
#include "backend/UserPreferencesStore.hpp"
#include "flows/TaggingJournal.hpp"
#include "platform/files/FolderGrants.hpp"
#include "platform/files/ValueFile.hpp"
#include "platform/http/HttpClient.hpp"
#include "platform/keyring/KeyringService.hpp"
#include "platform/log/CrashReporter.hpp"
#include "platform/model/ModelContainer.hpp"
#include "tagwriting/RewriteJournal.hpp"

#include <memory>
#include <optional>
#include <string>

namespace velto {

/// The product's backend, "https://host" without a slash at its end. Empty for now: the program then starts
/// the backend that comes with it.
inline constexpr std::string_view productBackendAddress = "";

/// What a face decides before the application is composed. Everything referred to outlives the application.
struct VeltoAppConfiguration {
    Home home;
    Executors executors;
    Clock& clock;
    Browser& browser;
    std::shared_ptr<KeyringService> keyring;   ///< null: the desktop's keyring
    std::optional<std::string> backendAddress; ///< none: the product's, else the local one
    /// Without, no backend is started and every request fails at once: for work on the store alone.
    bool needsBackend = true;
    bool checksAtLoad = true;
};

/// The composition root's one object: it owns the store, the authentication manager, the update manager and
/// all that they stand on, for the life of the process. Nothing that was started may be under way any more
/// when it goes. Main actor.
class VeltoApp {
  public:
    /// Opens the store, recovers interrupted rewrites, starts the local backend where there is no other, and
    /// composes the services. Throws Error with the text that the user is shown where the store cannot be
    /// opened: without it the program does not run. Anything else that fails is logged, and missed where it
    /// is used: without a backend the requests fail.
    static Task<std::unique_ptr<VeltoApp>> launch(VeltoAppConfiguration configuration);
    ~VeltoApp();
    VeltoApp(const VeltoApp&) = delete;
    VeltoApp& operator=(const VeltoApp&) = delete;

    /// The state object, made and set up on first use: what the main screen does when it appears.
    std::shared_ptr<MainScreenViewModel> viewModel();

    DefaultAuthenticationManager& authManager() { return *authManager_; }

    UpdateManager& updateManager();

    /// Why the local backend could not be started: the user's text. None where it runs or is not needed.
    [[nodiscard]] const std::optional<std::string>& backendFailure() const { return backendFailure_; }

    /// Whether the backend is the one that came with the program: it ends with it.
    [[nodiscard]] bool hasLocalBackend() const { return localBackend_.has_value(); }

    model::ModelContainer& sharedModelContainer() { return *sharedModelContainer_; }

    /// Opens the page that sells credits. Throws Error if the backend's address is no web address.
    void openBillingPage();

    /// Blocks while a file is being rewritten, for `longest` at most: for a process that is about to end.
    /// Nothing starts another rewrite meanwhile, since the main actor waits here.
    void finishRewrites(Seconds longest) const { rewriteJournal_.waitForTurnsToEnd(longest); }

    /// What a `velto://` URL leads to, by whichever way it came. Ends when the sign-in has ended; false where
    /// the URL is not the sign-in's.
    Task<bool> handleURLCallback(std::string url);

  private:
    explicit VeltoApp(VeltoAppConfiguration configuration);
    Task<void> prepare();
    void compose();
    std::shared_ptr<GraphQLClient> makeClient();
    void finishLaunching();

    VeltoAppConfiguration configuration_;
    FileCrashReporter crashReporter_;
    std::unique_ptr<model::ModelContainer> sharedModelContainer_;
    RewriteJournal rewriteJournal_;
    ValueFile settings_;
    FolderGrants folderGrants_;
    TaggingJournal taggingJournal_;
    http::HttpClient transport_;
    std::optional<LocalBackend> localBackend_;
    std::string backendAddress_;
    std::optional<std::string> backendFailure_;
    std::shared_ptr<KeyringService> keyring_;
    PreferencesGenreTextParser genreTextParser_{UserPreferencesStore::shared()};
    std::shared_ptr<GraphQLClient> authClient_;
    std::shared_ptr<GraphQLClient> taggingClient_;
    std::shared_ptr<DefaultAuthenticationManager> authManager_;
    std::unique_ptr<UpdateManager> updateManager_;
    std::shared_ptr<MainScreenViewModel> viewModel_;
};

} // namespace velto
