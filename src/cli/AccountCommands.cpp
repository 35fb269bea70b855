#include "cli/Commands.hpp"

#include "platform/text/Printable.hpp"
#include "platform/text/Text.hpp"

#include <unistd.h>

namespace velto::cli {

namespace {

Output sessionOutput(const UserSession& session) {
    Output output{{}, toJson(session), {}};
    const std::string email = session.email.value_or("");
    output.text = text::printable(session.name ? fmt::format("{} <{}>", *session.name, email) : email);
    if (session.creditBalance) output.text += fmt::format(", {} credits left", session.creditBalance->total);
    output.text += "\n";
    return output;
}

/// Keeps the last text that the sign-in showed: its state passes on at once.
struct ShownError {
    explicit ShownError(DefaultAuthenticationManager& manager)
        : subscription(manager.authenticationState().subscribe([this](const AuthenticationState& state) {
            if (state.errorMessage() != nullptr) text = *state.errorMessage();
        })) {}

    std::optional<std::string> text;
    Subscription subscription;
};

std::string notSignedIn(const Context& context) {
    return context.sessionError ? "not signed in: " + *context.sessionError
                                : "sign in first: veltoctl sign-in";
}

} // namespace

void requireSession(const Context& context) {
    if (!context.app.viewModel()->userSession->isSignedIn) throw CommandFailed(notSignedIn(context));
}

Task<void> restoreSession(Context& context) {
    auto& manager = context.app.authManager();
    const ShownError shown(manager);
    co_await manager.restoreSession();
    if (!manager.authenticationState()->session()) context.sessionError = shown.text;
}

Task<Output> signIn(Context& context) {
    const auto viewModel = context.app.viewModel();
    auto& manager = context.app.authManager();
    ShownError shown(manager);
    std::optional<std::string> url = context.options.callbackUrl;
    if (!url) {
        co_await manager.signIn();
        if (shown.text) throw CommandFailed(*shown.text);
    }
    if (!url || *url == "-") {
        const std::string question =
            url ? "" : "Paste the link that the page ends with (velto://auth?token=...):";
        const auto asking = [&terminal = context.terminal, question] { return ask(terminal, question); };
        url = co_await offload(context.executors, asking);
        if (!url) throw CommandCancelled();
    }
    if (!co_await context.app.handleURLCallback(text::trimmed(*url)))
        throw CommandFailed("this is not the link that the sign-in page ends with (velto://auth?token=...): "
                            "veltoctl sign-in");
    if (!viewModel->userSession->isSignedIn) throw CommandFailed(shown.text.value_or("the sign-in failed"));
    co_return sessionOutput(viewModel->userSession);
}

Task<Output> signOut(Context& context) {
    const auto viewModel = context.app.viewModel();
    ShownError shown(context.app.authManager());
    if (::isatty(STDIN_FILENO) == 1)
        co_await confirm(context,
                         "Signing out clears the libraries, tracks and playlists from this computer's store "
                         "(music files stay). Continue?");
    co_await viewModel->signOut();
    if (shown.text) throw CommandFailed(*shown.text);
    failOnError(*viewModel);
    co_return Output{"Signed out.\n", toJson(viewModel->userSession.get()), {}};
}

Task<Output> whoAmI(Context& context) {
    const UserSession session = context.app.viewModel()->userSession;
    Output output = session.isSignedIn ? sessionOutput(session) : Output{{}, toJson(session), {}};
    if (!session.isSignedIn) output.failure = notSignedIn(context);
    co_return output;
}

Task<Output> billing(Context& context) {
    context.app.openBillingPage();
    if (context.app.hasLocalBackend()) { // its pages go when this program does
        const auto asking = [&terminal = context.terminal] {
            return ask(terminal, "Press Enter when you are done with it:");
        };
        (void)co_await offload(context.executors, asking);
    }
    co_return Output{{}, Json::object(), {}};
}

} // namespace velto::cli
