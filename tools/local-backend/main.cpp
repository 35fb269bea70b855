#include "Faults.hpp"
#include "Server.hpp"
#include "State.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace velto;

struct Options {
    local::ServerOptions server;
    std::filesystem::path state;
    std::int64_t credits = 1000;
    std::vector<std::string> faults;
    std::string faultOn = "TagTracks";
    bool exitWithStdin = false;
};

/// The file that veltoctl gives to the backend that it starts: accounts and credits are the same in both.
std::filesystem::path defaultState() {
    constexpr const char* name = "local-backend.sqlite";
    const char* veltoHome = std::getenv("VELTO_HOME");
    if (veltoHome && veltoHome[0] != '\0') return std::filesystem::path(veltoHome) / name;
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return std::filesystem::path(data) / "velto" / name;
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home && home[0] == '/' ? home : "/") / ".local" / "share" / "velto" / name;
}

void describeOptions(CLI::App& app, Options& options) {
    app.add_option("--port", options.server.port, "Port on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535));
    app.add_option("--state", options.state, "SQLite file that keeps accounts, credits and library copies");
    app.add_option("--credits", options.credits, "Credits of a new account")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{1'000'000'000}))
        ->capture_default_str();
    app.add_flag("--exit-with-stdin", options.exitWithStdin, "End when standard input ends");
    app.add_flag("--quiet", options.server.quiet, "No line a request on standard error");
    app.add_option(
           "--fault", options.faults,
           "Fail on purpose: rate-limit[:MS], unauthorized, server-error, slow[:MS], drop, malformed, "
           "huge[:MB], wrong-status[:N], graphql-error[:TEXT], partial, insufficient-credits; with @N only "
           "the first N requests")
        ->allow_extra_args(false);
    app.add_option("--fault-on", options.faultOn, "Operation that the faults hit, or \"all\"")
        ->capture_default_str();
    app.add_flag("--control", options.server.control, "Let POST /control/faults change the faults");
}

/// Blocks SIGTERM and SIGINT for this and all later threads; they arrive on the descriptor instead.
int takeEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor < 0) throw SystemError(errno, "watch", "signals");
    return descriptor;
}

/// Returns when a signal came or, if wanted, standard input has ended (its other end closed or was
/// killed).
void waitForTheEnd(int signals, bool watchStdin) {
    for (;;) {
        std::array<pollfd, 2> watched{{{signals, POLLIN, 0}, {watchStdin ? STDIN_FILENO : -1, POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), -1) < 0) {
            if (errno == EINTR) continue;
            throw SystemError(errno, "wait on", "signals");
        }
        if (watched[0].revents != 0) return;
        std::array<char, 4096> ignored{};
        if (watched[1].revents != 0 && read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0) return;
    }
}

/// False if the server ended before it was asked to.
bool serve(const Options& options) {
    std::vector<local::Fault> parsed;
    for (const auto& text : options.faults)
        parsed.push_back(local::parseFault(text));
    const int signals = takeEndSignals();

    local::Faults faults;
    faults.set(std::move(parsed), options.faultOn);
    local::State state(options.state.empty() ? defaultState() : options.state, options.credits);
    local::Server server(state, faults, options.server);
    const int port = server.bind();
    bool served = true;
    std::thread listener([&] {
        served = server.run();
        if (!served) kill(getpid(), SIGTERM);
    });
    // The first line is how a program that started this one learns the address.
    fmt::print("http://127.0.0.1:{}\n", port);
    std::fflush(stdout);
    waitForTheEnd(signals, options.exitWithStdin);
    server.stop();
    listener.join();
    close(signals);
    return served;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Velto's local backend: sign-in, credits, rule-based tags (not AI) and library copies on this "
        "computer only",
        "velto-backend");
    Options options;
    describeOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        if (serve(options)) return 0;
        fmt::print(stderr, "velto-backend: the listening socket failed\n");
        return 1;
    } catch (const local::FaultError& error) {
        fmt::print(stderr, "velto-backend: {}\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "velto-backend: {}\n", error.what());
        return 1;
    }
}
