#include "media/ReadAhead.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace velto::media {

namespace {

/// How many files ahead of the reader: enough to keep a disk's queue busy, few enough that their pages are
/// not pushed out again before they are read.
constexpr std::size_t lead = 48;
constexpr off_t headBytes = 128 * 1024;
constexpr off_t tailBytes = 128 * 1024;

/// After this many cached files in a row only one file of `cachedStep` is looked at, until one is not cached.
constexpr std::size_t cachedRun = 32;
constexpr std::size_t cachedStep = 16;

/// Whether the byte at `offset` is in memory: a read that must not wait gives it.
bool isCached(int descriptor, off_t offset) {
    char byte = 0;
    const iovec target{&byte, 1};
    return ::preadv2(descriptor, &target, 1, offset, RWF_NOWAIT) == 1;
}

/// Asks for head and tail; whether both were there already.
bool hint(const char* path) {
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) return true;
    bool cached = true;
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        const off_t tail = std::max<off_t>(0, status.st_size - tailBytes);
        const bool headThere = isCached(descriptor, 0);
        const bool tailThere = isCached(descriptor, status.st_size - 1);
        if (!headThere) ::posix_fadvise(descriptor, 0, headBytes, POSIX_FADV_WILLNEED);
        if (!tailThere && status.st_size > headBytes)
            ::posix_fadvise(descriptor, tail, tailBytes, POSIX_FADV_WILLNEED);
        cached = headThere && tailThere;
    }
    ::close(descriptor);
    return cached;
}

} // namespace

struct ReadAhead::State {
    explicit State(std::vector<std::string> files)
        : paths(std::move(files)) {}

    void run() {
        std::size_t inARow = 0;
        for (std::size_t next = 0; next < paths.size();) {
            {
                std::unique_lock lock(mutex);
                wake.wait(lock, [&] { return stopped || next < reached + lead; });
                if (stopped) return;
                next = std::max(next, reached);
            }
            if (next >= paths.size()) return;
            inARow = hint(paths[next].c_str()) ? inARow + 1 : 0;
            next += inARow >= cachedRun ? cachedStep : 1;
        }
    }

    const std::vector<std::string> paths;
    std::mutex mutex;
    std::condition_variable wake;
    std::size_t reached = 0; ///< guarded by mutex, as is stopped
    bool stopped = false;
    std::thread thread;
};

ReadAhead::ReadAhead(std::vector<std::string> paths)
    : state_(std::make_unique<State>(std::move(paths))) {
    state_->thread = std::thread([state = state_.get()] { state->run(); });
}

ReadAhead::~ReadAhead() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->stopped = true;
    }
    state_->wake.notify_one();
    state_->thread.join();
}

void ReadAhead::reached(std::size_t index) {
    bool due = false;
    {
        const std::lock_guard lock(state_->mutex);
        // Waking the thread for every file would cost more than it saves.
        due = index / cachedStep != state_->reached / cachedStep;
        state_->reached = std::max(state_->reached, index);
    }
    if (due) state_->wake.notify_one();
}

} // namespace velto::media
