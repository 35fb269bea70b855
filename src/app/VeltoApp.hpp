#pragma once

#include "app/Home.hpp"
#include "app/LocalBackend.hpp"
#include "app/LocalBackendTransport.hpp"
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

#include <functional>
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
    /// One place for every backend's token, such as a token file.
    std::shared_ptr<KeyringService> keyring;   ///< null: the desktop's keyring
    std::optional<std::string> backendAddress; ///< none: the product's, else the local one
    /// Without, no backend is started and every request fails at once: for work on the store alone.
    bool needsBackend = true;
    bool checksAtLoad = true;
};

/// How a sign-in ended that VeltoApp led through.
enum class SignInEnd {
    finished,  ///< the authentication state says how
    cancelled, ///< nothing was pasted
    notALink,  ///< what was pasted is not the link that the sign-in page ends with
};

/// Asks the user for the link that the sign-in page ends with; nothing if the user gives up. Ends, with
/// nothing, soon after the token is cancelled: the link is no longer needed. Started on the main actor.
using AskForLink = std::function<Task<std::optional<std::string>>(CancellationToken notNeeded)>;

/// The composition root's one object: it owns the store, the authentication manager, the update manager and
/// all that they use, for the life of the process. Nothing that was started may be under way any more
/// when it goes. Main actor.
class VeltoApp {
  public:
    /// Opens the store, recovers interrupted rewrites, starts the local backend if there is no other, and
    /// composes the services. Throws Error with the text that the user is shown if the store cannot be
    /// opened: without it the program does not run. Anything else that fails is logged, and missed when it is
    /// used: without a backend the requests fail.
    static Task<std::unique_ptr<VeltoApp>> launch(VeltoAppConfiguration configuration);
    ~VeltoApp();
    VeltoApp(const VeltoApp&) = delete;
    VeltoApp& operator=(const VeltoApp&) = delete;

    /// The state object, made and set up on first use: what the main screen does when it appears.
    std::shared_ptr<MainScreenViewModel> viewModel();

    DefaultAuthenticationManager& authManager() { return *authManager_; }

    UpdateManager& updateManager();

    /// Why the local backend could not be started: the user's text. None if it runs or is not needed.
    [[nodiscard]] const std::optional<std::string>& backendFailure() const { return backendFailure_; }

    /// Whether the backend is the one that came with the program: it ends with it.
    [[nodiscard]] bool hasLocalBackend() const { return localBackend_ != nullptr; }

    model::ModelContainer& sharedModelContainer() { return *sharedModelContainer_; }

    /// Opens the page that sells credits. Throws Error if the backend's address is not a web address.
    void openBillingPage();

    /// Blocks while a file is being rewritten, for `longest` at most: for a process that is about to end.
    /// Nothing starts another rewrite meanwhile, since the main actor waits here.
    void finishRewrites(Seconds longest) const { rewriteJournal_.waitForTurnsToEnd(longest); }

    /// Opens the sign-in page, and ends when the token has come and has been tried. At a backend on this
    /// computer the page itself brings the token back; at every backend the user can paste the link instead,
    /// for which `askForLink` is called at once.
    Task<SignInEnd> signIn(AskForLink askForLink);

    /// What a `velto://` URL leads to, by whichever way it came. Ends when the sign-in has ended; false if
    /// the URL is not the sign-in's.
    Task<bool> handleURLCallback(std::string url);

  private:
    VeltoApp(VeltoAppConfiguration configuration, std::unique_ptr<model::ModelContainer> container);
    Task<void> prepare();
    Task<void> startLocalBackend();
    void compose();
    [[nodiscard]] bool isDefaultBackend() const;
    [[nodiscard]] std::string environment() const;
    [[nodiscard]] std::shared_ptr<KeyringService> tokenOf(const std::string& backend) const;
    [[nodiscard]] std::shared_ptr<KeyringService> makeKeyring() const;
    std::shared_ptr<GraphQLClient> makeClient();
    void finishLaunching();
    struct PendingSignIn;
    Task<SignInEnd> finishSignIn(std::shared_ptr<PendingSignIn> pending);

    VeltoAppConfiguration configuration_;
    FileCrashReporter crashReporter_;
    std::unique_ptr<model::ModelContainer> sharedModelContainer_;
    RewriteJournal rewriteJournal_;
    ValueFile settings_;
    FolderGrants folderGrants_;
    TaggingJournal taggingJournal_;
    http::HttpClient transport_;
    std::unique_ptr<LocalBackend> localBackend_;
    std::unique_ptr<LocalBackendTransport> localTransport_;
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
