#include "platform/log/Log.hpp"

#include "platform/core/Date.hpp"
#include "platform/core/Error.hpp"
#include "platform/text/Printable.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace velto::log {

namespace {

constexpr off_t rotateAtBytes = off_t{8} << 20;
/// A caller that logs faster than the sinks write waits here, so that the log cannot eat the memory.
constexpr std::size_t bufferLimitBytes = std::size_t{16} << 20;

void writeAll(int descriptor, std::string_view block) {
    while (!block.empty()) {
        const ssize_t written = ::write(descriptor, block.data(), block.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return; // a log that cannot be written must not stop the program
        block.remove_prefix(static_cast<std::size_t>(written));
    }
}

class Writer {
  public:
    static Writer& shared() {
        static Writer writer;
        return writer;
    }

    void append(std::string_view text) {
        std::unique_lock lock(mutex_);
        if (sinks_.empty()) return;
        drained_.wait(lock, [this] { return pending_.size() < bufferLimitBytes || stopping_; });
        const bool wasEmpty = pending_.empty();
        text::appendPrintable(pending_, text);
        pending_ += '\n';
        ++appended_;
        if (wasEmpty) wake_.notify_one();
    }

    int add(Sink sink) {
        const std::lock_guard lock(mutex_);
        sinks_.push_back({++lastIdentifier_, std::make_shared<Sink>(std::move(sink))});
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
        return lastIdentifier_;
    }

    void remove(int identifier) {
        flush();
        const std::lock_guard lock(mutex_);
        std::erase_if(sinks_, [&](const auto& entry) { return entry.first == identifier; });
    }

    void flush() {
        std::unique_lock lock(mutex_);
        const std::uint64_t target = appended_;
        drained_.wait(lock, [&] { return written_ >= target || sinks_.empty(); });
    }

    ~Writer() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        if (thread_.joinable()) thread_.join();
    }

  private:
    void run() {
        std::unique_lock lock(mutex_);
        while (true) {
            wake_.wait(lock, [this] { return !pending_.empty() || stopping_; });
            if (pending_.empty() && stopping_) return;
            const std::string block = std::exchange(pending_, {});
            const std::uint64_t upTo = appended_;
            const auto sinks = sinks_;
            lock.unlock();
            for (const auto& entry : sinks)
                (*entry.second)(block);
            lock.lock();
            written_ = upTo;
            drained_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable drained_;
    std::string pending_;
    std::vector<std::pair<int, std::shared_ptr<Sink>>> sinks_;
    int lastIdentifier_ = 0;
    std::uint64_t appended_ = 0;
    std::uint64_t written_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace

void line(std::string_view text) {
    Writer::shared().append(text);
}

SinkHandle addSink(Sink sink) {
    return SinkHandle(Writer::shared().add(std::move(sink)));
}

SinkHandle& SinkHandle::operator=(SinkHandle&& other) noexcept {
    std::swap(identifier_, other.identifier_);
    return *this;
}

SinkHandle::~SinkHandle() {
    if (identifier_ != 0) Writer::shared().remove(identifier_);
}

SinkHandle addStandardErrorSink() {
    return addSink([](std::string_view block) { writeAll(STDERR_FILENO, block); });
}

SinkHandle addFileSink(const std::filesystem::path& path) {
    struct ::stat info {};

    if (::stat(path.c_str(), &info) == 0 && info.st_size > rotateAtBytes)
        (void)::rename(path.c_str(), (path.string() + ".1").c_str());
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (descriptor < 0) throw SystemError(errno, "Cannot open the log file", path.string());
    const std::shared_ptr<const int> owned(new int(descriptor), [](const int* fd) {
        ::close(*fd);
        delete fd;
    });
    return addSink([owned](std::string_view block) {
        const auto now =
            std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
        const std::string stamp = iso8601(now) + " ";
        std::string out;
        out.reserve(block.size() * 2);
        while (!block.empty()) {
            const auto end = block.find('\n') + 1;
            out.append(stamp).append(block.substr(0, end));
            block.remove_prefix(end);
        }
        writeAll(*owned, out);
    });
}

void flush() {
    Writer::shared().flush();
}

struct Capture::State {
    mutable std::mutex mutex;
    std::vector<std::string> lines;
};

Capture::Capture()
    : state_(std::make_shared<State>())
    , handle_(addSink([state = state_](std::string_view block) {
        const std::lock_guard lock(state->mutex);
        while (!block.empty()) {
            const auto end = block.find('\n');
            state->lines.emplace_back(block.substr(0, end));
            block.remove_prefix(end + 1);
        }
    })) {}

std::vector<std::string> Capture::lines() const {
    flush();
    const std::lock_guard lock(state_->mutex);
    return state_->lines;
}

bool Capture::contains(std::string_view text) const {
    const auto all = lines();
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

} // namespace velto::log
