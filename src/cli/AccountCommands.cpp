#include "cli/Commands.hpp"

#include "backend/GraphQLError.hpp"
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

/// Why a stored token led to no session, and what helps.
std::string reasonOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const KeychainError& error) {
        return describe(error) + ": unlock the keyring, or keep the token in a file with --token-file";
    } catch (const GraphQLClientError& error) {
        return error.kind() == GraphQLClientError::Case::unauthorized
                   ? "the session has ended, sign in again: veltoctl sign-in"
                   : describe(error);
    } catch (const std::exception& error) {
        return describe(error);
    }
}

/// The question for the link that the sign-in page ends with; nothing but the answer if it is piped in.
Task<std::optional<std::string>> askForLink(Context& context, std::string question,
                                            CancellationToken notNeeded) {
    const auto asking = [&context, question, notNeeded] {
        return ask(context.terminal, question, notNeeded);
    };
    const auto link = co_await offload(context.executors, asking);
    co_return link ? std::optional(text::trimmed(*link)) : std::nullopt;
}

} // namespace

void requireSession(const Context& context) {
    if (!context.app.viewModel()->userSession->isSignedIn) throw CommandFailed(notSignedIn(context));
}

Task<void> restoreSession(Context& context) {
    auto& manager = context.app.authManager();
    co_await manager.restoreSession();
    if (manager.restoreFailure()) context.sessionError = reasonOf(manager.restoreFailure());
}

Task<Output> signIn(Context& context) {
    const auto viewModel = context.app.viewModel();
    const ShownError shown(context.app.authManager());
    std::optional<std::string> url = context.options.callbackUrl;
    if (url == "-") {
        url = co_await askForLink(context, "", {});
        if (!url) throw CommandCancelled();
    }
    SignInEnd end = SignInEnd::finished;
    if (url) {
        if (!co_await context.app.handleURLCallback(text::trimmed(*url))) end = SignInEnd::notALink;
    } else {
        const std::string question = "Sign in there, or paste the link that the page ends with "
                                     "(velto://auth?token=...):";
        const auto asking = [&context, question](CancellationToken notNeeded) {
            return askForLink(context, question, std::move(notNeeded));
        };
        end = co_await context.app.signIn(asking);
    }
    if (end == SignInEnd::cancelled) throw CommandCancelled();
    if (end == SignInEnd::notALink)
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
