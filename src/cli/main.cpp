// veltoctl: the state object without a window.

#include "cli/Commands.hpp"
#include "platform/keyring/FileKeyring.hpp"
#include "platform/text/Printable.hpp"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>

#include <malloc.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace velto::cli {

namespace {

constexpr int done = 0;
constexpr int failed = 1;
constexpr int cancelled = 130;
constexpr std::size_t poolThreads = 4;
/// After SIGTERM or SIGHUP, what is under way may take this long.
constexpr std::chrono::milliseconds longestFarewell{1500};
/// And after that, or after a second Ctrl-C, the files that are being written right now.
constexpr Seconds longestRewrite{0.4};

/// Shows a page's address, and opens the page if there is a desktop.
class TerminalBrowser final : public Browser {
  public:
    TerminalBrowser(Terminal& terminal, Executors executors)
        : terminal_(terminal)
        , executors_(std::move(executors)) {}

    void openURL(const std::string& url) override {
        terminal_.say("Open this page in your browser:\n  " + url);
        if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr) return;
        asio::post(executors_.pool, [url] {
            try {
                files::startDetached({"/usr/bin/xdg-open", url}); // may be the browser itself, for hours
            } catch (const std::exception& error) {
                log::line("⚠️ [BROWSER] {}", describe(error)); // the address is on the terminal
            }
        });
    }

    void activateApplication() override {}

  private:
    Terminal& terminal_;
    Executors executors_;
};

/// Commands that work on the store alone start no backend and ask no keyring.
bool needsBackend(const Options& options) {
    switch (options.command) {
    case Command::libraryAdd:
    case Command::scan:
    case Command::check:
    case Command::tag:
    case Command::signIn:
    case Command::whoAmI:
    case Command::billing:
        return true;
    default:
        return false;
    }
}

/// Without a vocabulary the genre texts of the files are not taken apart; the files are scanned all the same.
bool worksWithoutBackend(const Options& options) {
    return options.command == Command::scan || options.command == Command::check;
}

/// `check` asks for the session only if it finds something to scan.
bool usesSession(const Options& options) {
    return needsBackend(options) && options.command != Command::signIn && options.command != Command::check &&
           options.command != Command::billing;
}

/// For whoever has asked it to stop.
std::string whatIsWritten(const Options& options) {
    switch (options.command) {
    case Command::tag:
    case Command::clearTags:
        return "Stopping: what is under way is stored and written to its files first";
    case Command::libraryRemove:
    case Command::signOut:
        return "The store is being cleared, the music files stay as they are: this ends by itself";
    default:
        return "The store is being written: this ends by itself";
    }
}

class Program {
  public:
    explicit Program(const Options& options)
        : options_(options)
        , pool_(poolThreads)
        , storeThread_(1)
        , executors_{context_.get_executor(), pool_.get_executor(), storeThread_.get_executor()}
        , signals_(context_, SIGINT, SIGTERM, SIGHUP)
        , deadline_(context_)
        , terminal_(options.verbosity, clock_)
        , browser_(terminal_, executors_) {}

    int run() {
        bindMainActor();
        std::signal(SIGPIPE, SIG_IGN);
        int code = failed;
        asio::co_spawn(context_, runToEnd(code), [this](const std::exception_ptr& failure) {
            if (failure) terminal_.complain(describe(failure));
            signals_.cancel();
            context_.stop();
        });
        waitForSignal();
        context_.run();
        app_.reset();
        pool_.join();
        storeThread_.join();
        return code;
    }

  private:
    Task<void> runToEnd(int& code) {
        co_await runCommandLine(code);
        // What an interrupt has started still holds the state object, which the application must outlive.
        if (commandContext_) co_await commandContext_->interruptions.finished();
    }

    Task<void> runCommandLine(int& code) {
        try {
            home_ = prepareHome(options_.home);
            openLogFile();
            const Output output = co_await command();
            const std::string text = options_.json ? output.jsonText.value_or(printed(output.json)) + "\n"
                                                   : text::printableLines(output.text);
            terminal_.endProgress();
            terminal_.flush(); // standard output may be the same terminal
            const bool written =
                std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
            // Whoever reads only the first lines of a pipe needs no message.
            if (!written && errno != EPIPE)
                terminal_.complain(describe(SystemError(errno, "Cannot write", "standard output")));
            if (output.failure) terminal_.complain(*output.failure);
            code = output.failure || !written ? failed : done;
            if (output.wasStopped) code = cancelled;
        } catch (const CommandCancelled& error) {
            terminal_.endProgress();
            terminal_.complain(describe(error));
            code = cancelled;
        } catch (const std::exception& error) {
            terminal_.endProgress();
            terminal_.complain(describe(error));
            code = failed;
        }
    }

    /// Without a log file the commands work all the same.
    void openLogFile() {
        try {
            logFile_ = log::addFileSink(home_.log);
        } catch (const std::exception& error) {
            terminal_.complain(describe(error));
        }
    }

    Task<Output> command() {
        co_await compose();
        if (const auto& failure = app_->backendFailure()) {
            if (!worksWithoutBackend(options_)) throw CommandFailed(*failure);
            terminal_.complain(*failure);
        }
        if (usesSession(options_)) co_await restoreSession(*commandContext_);
        co_return co_await runCommand(*commandContext_);
    }

    Task<void> compose() {
        std::shared_ptr<FileKeyring> tokenFile;
        if (options_.tokenFile) {
            tokenFile = std::make_shared<FileKeyring>(*options_.tokenFile);
            tokenFile->check();
        }
        VeltoAppConfiguration configuration{.home = home_,
                                            .executors = executors_,
                                            .clock = clock_,
                                            .browser = browser_,
                                            .keyring = tokenFile,
                                            .backendAddress = options_.backend,
                                            .needsBackend = needsBackend(options_),
                                            .checksAtLoad = false};
        app_ = co_await VeltoApp::launch(std::move(configuration));
        (void)app_->viewModel();
        commandContext_.emplace(Context{
            options_, home_, *app_, terminal_, executors_, clock_, BackgroundTasks(executors_.main), {}});
    }

    void waitForSignal() {
        signals_.async_wait([this](const asio::error_code& error, int number) {
            if (error) return;
            // A terminal that closes says so more than once, and nobody is there to mean it.
            if (number != SIGHUP || interrupts_ == 0) interrupted();
            if (number != SIGINT) limitTheWait();
            waitForSignal();
        });
    }

    /// Who ends a session or shuts the machine down kills what does not end soon.
    void limitTheWait() {
        deadline_.expires_after(longestFarewell);
        deadline_.async_wait([this](const asio::error_code& error) {
            if (!error && interrupts_ == 1) interrupted();
        });
    }

    void interrupted() {
        ++interrupts_;
        if (!commandContext_ || interrupts_ > 2) quit();
        if (interrupts_ == 2) {
            const auto handled = [](const std::exception_ptr&) {}; // quit() has ended the process
            asio::co_spawn(context_, storeAndQuit(), handled);
            return;
        }
        const Interruption what = interrupt(*commandContext_);
        if (what == Interruption::quitNow) quit();
        if (what == Interruption::mustWait)
            terminal_.say(whatIsWritten(options_) + ". Press Ctrl-C again to stop now.");
    }

    Task<void> storeAndQuit() {
        const std::string text = co_await storeUnfinished(*commandContext_);
        app_->finishRewrites(longestRewrite);
        terminal_.endProgress();
        terminal_.complain(text);
        quit();
    }

    /// A rewrite of a file that is still under way is put right by the next start.
    [[noreturn]] void quit() {
        terminal_.flush();
        std::_Exit(cancelled);
    }

    const Options& options_;
    Home home_;
    asio::io_context context_;
    asio::thread_pool pool_;
    asio::thread_pool storeThread_;
    Executors executors_;
    asio::signal_set signals_;
    asio::steady_timer deadline_;
    SystemClock clock_;
    Terminal terminal_;
    TerminalBrowser browser_;
    log::SinkHandle logFile_;
    std::unique_ptr<VeltoApp> app_;
    std::optional<Context> commandContext_;
    int interrupts_ = 0;
};

} // namespace

} // namespace velto::cli

int main(int argc, char** argv) {
    ::mallopt(M_ARENA_MAX, 2); // an arena for each thread would keep a sixth more after a large scan
    const auto parsed = velto::cli::parseOptions(argc, argv);
    if (const int* code = std::get_if<int>(&parsed)) return *code;
    return velto::cli::Program(std::get<velto::cli::Options>(parsed)).run();
}
