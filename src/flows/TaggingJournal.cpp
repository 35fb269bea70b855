#include "flows/TaggingJournal.hpp"

#include "platform/files/AtomicReplace.hpp"
#include "platform/log/Log.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string_view>
#include <utility>

namespace velto {

namespace {

// Both files hold texts, each with a zero after it, which none of them holds: do not change.

template <typename Bytes>
void append(Bytes& bytes, std::string_view text) {
    for (const char c : text)
        if (c != '\0') bytes.push_back(static_cast<typename Bytes::value_type>(c));
    bytes.push_back(0);
}

/// What follows the last zero was cut off.
template <typename Bytes>
std::vector<std::string> texts(const Bytes& bytes) {
    std::vector<std::string> found(1);
    for (const auto byte : bytes) {
        if (byte == 0)
            found.emplace_back();
        else
            found.back() += static_cast<char>(byte);
    }
    found.pop_back();
    return found;
}

template <typename Number>
Number numberIn(std::string_view text) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

} // namespace

/// The start in microseconds since 1970, then each canonicalSig. A large run's file takes some megabytes.
struct TaggingJournal::LastRunFile {
    std::filesystem::path path;
    std::mutex mutex;
    std::uint64_t made = 0; ///< main actor only
    std::uint64_t written = 0;

    void write(std::uint64_t number, Date start, const std::vector<std::string>& untagged) {
        std::string content;
        append(content, std::to_string(microsecondsSince1970(start)));
        for (const std::string& signature : untagged)
            append(content, signature);
        const std::lock_guard lock(mutex);
        if (number <= written) return; // a later run is on the disk
        files::replaceFile(path, content);
        written = number;
    }

    LastRun read() {
        const std::lock_guard lock(mutex);
        std::ifstream in(path, std::ios::binary);
        auto parts = texts(std::string(std::istreambuf_iterator<char>(in), {}));
        LastRun run;
        if (parts.empty()) return run;
        run.start = dateFromMicroseconds(numberIn<std::int64_t>(parts.front()));
        run.untagged.insert(std::move_iterator(parts.begin() + 1), std::move_iterator(parts.end()));
        return run;
    }
};

TaggingJournal::TaggingJournal(const std::filesystem::path& folder, const Executors& executors)
    : executors_(executors)
    , inFlight_(folder / "tagging-in-flight.json", executors)
    , lastRun_(std::make_shared<LastRunFile>())
    , leftOver_(inFlight_.keys()) {
    lastRun_->path = folder / "tagging-last-run";
    for (const std::string& key : leftOver_)
        last_ = std::max(last_, numberIn<BatchNumber>(key));
}

Task<TaggingJournal::BatchNumber> TaggingJournal::begin(std::vector<std::string> names) {
    const BatchNumber number = ++last_;
    ValueFile::Bytes bytes;
    for (const std::string& name : names)
        append(bytes, name);
    std::exception_ptr failure;
    try {
        co_await inFlight_.setData(std::to_string(number), std::move(bytes));
    } catch (const std::exception&) {
        failure = std::current_exception();
    }
    if (!failure) co_return number;
    // Else a later write would bring a batch that was never asked for.
    try {
        co_await end(number);
    } catch (const std::exception&) { // as the first
    }
    std::rethrow_exception(failure);
}

Task<void> TaggingJournal::end(BatchNumber batch) {
    co_await inFlight_.remove(std::to_string(batch));
}

Task<void> TaggingJournal::reportLeftOvers() {
    const auto left = std::exchange(leftOver_, {});
    for (const std::string& batch : left) {
        const auto names = texts(inFlight_.data(batch).value_or(ValueFile::Bytes()));
        log::line(
            "⚠️ [VM] A tagging run ended while a batch of {} tracks was under way; it may have been paid "
            "for without its tags: {}",
            names.size(), fmt::join(names, "; "));
    }
    for (const std::string& batch : left)
        co_await inFlight_.remove(batch);
}

Task<LastRun> TaggingJournal::lastRun() const {
    const auto reading = [file = lastRun_] { return file->read(); };
    co_return co_await offload(executors_, reading);
}

Task<void> TaggingJournal::setLastRun(Date start, std::vector<std::string> untagged) {
    const auto writing = [file = lastRun_, number = ++lastRun_->made, start,
                          signatures = std::move(untagged)] { file->write(number, start, signatures); };
    co_await offload(executors_, writing);
}

} // namespace velto
