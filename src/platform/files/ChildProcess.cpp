#include "platform/files/ChildProcess.hpp"

#include "platform/core/Error.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

extern char** environ;

namespace velto::files {

namespace {

constexpr std::size_t longestFirstLine = std::size_t{64} << 10;
constexpr auto patienceAfterTerm = std::chrono::seconds(2);

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

Pipe makePipe(const std::string& program) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw SystemError(errno, "Cannot make a pipe to", program);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// What a child is started with; -1 means /dev/null.
struct Streams {
    int input = -1;
    int output = -1;
    int error = -1;
};

class SpawnActions {
  public:
    SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }

    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    void attach(int descriptor, int target, int openFlags) {
        if (descriptor >= 0)
            ::posix_spawn_file_actions_adddup2(&actions_, descriptor, target);
        else
            ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", openFlags, 0);
    }

    void closeOthers() { ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1); }

    [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

/// Signals as a program expects to find them, whatever this process blocks or ignores.
class SpawnAttributes {
  public:
    explicit SpawnAttributes(bool ownGroup) {
        ::posix_spawnattr_init(&attributes_);
        sigset_t none, ordinary;
        ::sigemptyset(&none);
        ::sigemptyset(&ordinary);
        for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
            ::sigaddset(&ordinary, signal);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &ordinary);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        const int flags =
            POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | (ownGroup ? POSIX_SPAWN_SETPGROUP : 0);
        ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }

    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }

    [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

pid_t spawnProgram(const std::vector<std::string>& arguments, const Streams& streams, bool ownGroup) {
    SpawnActions actions;
    actions.attach(streams.input, STDIN_FILENO, O_RDONLY);
    actions.attach(streams.output, STDOUT_FILENO, O_WRONLY);
    actions.attach(streams.error, STDERR_FILENO, O_WRONLY);
    actions.closeOthers();
    const SpawnAttributes attributes(ownGroup);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str())); // posix_spawn does not write to them
    argv.push_back(nullptr);
    pid_t child = -1;
    const int failed = ::posix_spawn(&child, arguments.front().c_str(), actions.get(), attributes.get(),
                                     argv.data(), environ);
    if (failed != 0) throw SystemError(failed, "Cannot start", arguments.front());
    return child;
}

int reap(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Appends what a ready pipe holds; closes it at its end.
void drain(Descriptor& from, std::string& into) {
    std::array<char, 65'536> block{};
    const ssize_t count = ::read(from.get(), block.data(), block.size());
    if (count > 0)
        into.append(block.data(), static_cast<std::size_t>(count));
    else if (count == 0 || errno != EINTR)
        from.reset();
}

/// Reads both pipes to their ends; false if one gave more than the limit.
bool drainBoth(Descriptor& output, Descriptor& error, ProcessOutput& into, std::size_t limitBytes) {
    while (output || error) {
        std::array<pollfd, 2> waiting{{{output.get(), POLLIN, 0}, {error.get(), POLLIN, 0}}};
        if (::poll(waiting.data(), waiting.size(), -1) < 0) continue;
        if (waiting[0].revents != 0) drain(output, into.standardOutput);
        if (waiting[1].revents != 0) drain(error, into.standardError);
        if (into.standardOutput.size() > limitBytes || into.standardError.size() > limitBytes) return false;
    }
    return true;
}

} // namespace

ProcessOutput runProcess(const std::vector<std::string>& arguments, std::size_t outputLimitBytes) {
    Pipe output = makePipe(arguments.front());
    Pipe error = makePipe(arguments.front());
    const pid_t child =
        spawnProgram(arguments, {.output = output.writeEnd.get(), .error = error.writeEnd.get()}, false);
    output.writeEnd.reset();
    error.writeEnd.reset();
    ProcessOutput result;
    const bool complete = drainBoth(output.readEnd, error.readEnd, result, outputLimitBytes);
    if (!complete) ::kill(child, SIGKILL);
    result.status = reap(child);
    if (!complete) throw SystemError(EFBIG, "Cannot hold the output of", arguments.front());
    return result;
}

void startDetached(std::vector<std::string> arguments) {
    // The helper makes the session, starts the program in it and ends, so that nobody has to reap the
    // program.
    arguments.insert(arguments.begin(), {"/usr/bin/setsid", "--fork"});
    reap(spawnProgram(arguments, {}, true));
}

ChildProcess::ChildProcess(pid_t child, Descriptor input, Descriptor output)
    : child_(child)
    , input_(std::move(input))
    , output_(std::move(output)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : child_(std::exchange(other.child_, -1))
    , input_(std::move(other.input_))
    , output_(std::move(other.output_)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(child_, other.child_);
    std::swap(input_, other.input_);
    std::swap(output_, other.output_);
    return *this;
}

ChildProcess::~ChildProcess() {
    terminate();
}

ChildProcess ChildProcess::start(const std::vector<std::string>& arguments, int standardError) {
    Pipe input = makePipe(arguments.front());
    Pipe output = makePipe(arguments.front());
    const pid_t child = spawnProgram(
        arguments, {.input = input.readEnd.get(), .output = output.writeEnd.get(), .error = standardError},
        true);
    return {child, std::move(input.writeEnd), std::move(output.readEnd)};
}

std::optional<std::string> ChildProcess::readFirstLine(Seconds deadline) {
    using namespace std::chrono;
    const auto until = steady_clock::now() + duration_cast<steady_clock::duration>(deadline);
    std::string text;
    while (output_ && text.size() <= longestFirstLine) {
        const auto left = ceil<milliseconds>(until - steady_clock::now()).count();
        pollfd waiting{output_.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, 1 << 30)));
        if (ready == 0) return std::nullopt;
        if (ready < 0) continue;
        drain(output_, text);
        if (const auto end = text.find('\n'); end != std::string::npos) return text.substr(0, end);
    }
    return std::nullopt;
}

bool ChildProcess::isRunning() {
    if (child_ >= 0 && ::waitpid(child_, nullptr, WNOHANG) != 0) child_ = -1;
    return child_ >= 0;
}

void ChildProcess::terminate() {
    input_.reset();
    output_.reset();
    if (!isRunning()) return;
    ::kill(child_, SIGTERM);
    const auto patience = std::chrono::steady_clock::now() + patienceAfterTerm;
    while (isRunning()) {
        if (std::chrono::steady_clock::now() > patience) {
            ::kill(child_, SIGKILL);
            reap(std::exchange(child_, -1));
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

} // namespace velto::files
