#include "platform/log/Log.hpp"

#include "platform/text/Printable.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <thread>

namespace velto::log {

namespace {

/// After a block the log's thread rests, so that many lines cost few wake-ups: that long, unless a warning,
/// an error, a flush or as many bytes as that come first.
constexpr auto rest = std::chrono::milliseconds(20);
constexpr std::size_t restBytes = std::size_t{256} << 10;

/// Beyond this a line is dropped, so that a sink that hangs costs neither the memory nor anybody's time.
constexpr std::size_t bufferLimitBytes = std::size_t{16} << 20;

bool startsWithOneOf(std::string_view line, std::initializer_list<std::string_view> starts) {
    return std::any_of(starts.begin(), starts.end(),
                       [line](std::string_view start) { return line.starts_with(start); });
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
        if (pending_.size() >= bufferLimitBytes) {
            ++dropped_;
            return;
        }
        const bool wasEmpty = pending_.empty();
        text::appendPrintable(pending_, text);
        pending_ += '\n';
        ++appended_;
        if (levelOf(text) != Level::info || pending_.size() >= restBytes) urgentTo_ = appended_;
        if (isResting_ ? urgentTo_ == appended_ : wasEmpty) wake_.notify_one();
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
        urgentTo_ = target;
        if (isResting_) wake_.notify_one();
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
            std::string block = std::exchange(pending_, {});
            if (const auto count = std::exchange(dropped_, 0); count > 0)
                block +=
                    fmt::format("⚠️ [LOG] {} lines are missing here: they came faster than the log could "
                                "be written\n",
                                count);
            const std::uint64_t upTo = appended_;
            const auto sinks = sinks_;
            lock.unlock();
            for (const auto& entry : sinks)
                (*entry.second)(block);
            lock.lock();
            written_ = upTo;
            drained_.notify_all();
            isResting_ = true;
            wake_.wait_for(lock, rest, [this] { return urgentTo_ > written_ || stopping_; });
            isResting_ = false;
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
    std::uint64_t dropped_ = 0;
    std::uint64_t urgentTo_ = 0; ///< what was appended up to there is not to wait
    bool isResting_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace

Level levelOf(std::string_view line) {
    if (startsWithOneOf(line, {"❌", "💥", "🔴", "Failed ", "Import failed", "🕐 [LOAD PERF] ERROR"}))
        return Level::error;
    return line.starts_with("⚠️") ? Level::warning : Level::info;
}

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
