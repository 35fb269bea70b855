#include "flows/TaggingJournal.hpp"

#include "platform/log/Log.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace velto {

namespace {

constexpr auto unfinishedKey = "canonicalSigs";

/// Texts, each with a zero after it, which none of them holds.
void append(ValueFile::Bytes& bytes, const std::string& text) {
    for (const char c : text)
        if (c != '\0') bytes.push_back(static_cast<std::uint8_t>(c));
    bytes.push_back(0);
}

std::vector<std::string> texts(const ValueFile::Bytes& bytes) {
    std::vector<std::string> found(1);
    for (const std::uint8_t byte : bytes) {
        if (byte == 0)
            found.emplace_back();
        else
            found.back() += static_cast<char>(byte);
    }
    found.pop_back();
    return found;
}

} // namespace

TaggingJournal::TaggingJournal(const std::filesystem::path& folder, const Executors& executors)
    : inFlight_(folder / "tagging-in-flight.json", executors)
    , unfinished_(folder / "tagging-unfinished.json", executors)
    , leftOver_(inFlight_.keys()) {
    for (const std::string& key : leftOver_) {
        BatchNumber number = 0;
        std::from_chars(key.data(), key.data() + key.size(), number);
        last_ = std::max(last_, number);
    }
}

Task<TaggingJournal::BatchNumber> TaggingJournal::begin(std::vector<Entry> batch) {
    const BatchNumber number = ++last_;
    ValueFile::Bytes bytes;
    for (const Entry& entry : batch) {
        append(bytes, entry.canonicalSig);
        append(bytes, entry.name);
    }
    co_await inFlight_.setData(std::to_string(number), std::move(bytes));
    co_return number;
}

Task<void> TaggingJournal::end(BatchNumber batch) {
    co_await inFlight_.remove(std::to_string(batch));
}

Task<void> TaggingJournal::reportLeftOvers() {
    const auto left = std::exchange(leftOver_, {});
    if (left.empty()) co_return;
    auto signatures = unfinished();
    for (const std::string& batch : left) {
        const auto parts = texts(inFlight_.data(batch).value_or(ValueFile::Bytes()));
        std::vector<std::string> names;
        for (std::size_t i = 0; i + 1 < parts.size(); i += 2) {
            signatures.insert(parts[i]);
            names.push_back(parts[i + 1]);
        }
        log::line(
            "⚠️ [VM] A tagging run ended while a batch of {} tracks was under way; it may have been "
            "paid for "
            "without its tags: {}",
            names.size(), fmt::join(names, "; "));
    }
    co_await setUnfinished({signatures.begin(), signatures.end()});
    for (const std::string& batch : left)
        co_await inFlight_.remove(batch);
}

std::set<std::string> TaggingJournal::unfinished() const {
    const auto signatures = texts(unfinished_.data(unfinishedKey).value_or(ValueFile::Bytes()));
    return {signatures.begin(), signatures.end()};
}

Task<void> TaggingJournal::setUnfinished(const std::vector<std::string>& canonicalSigs) {
    ValueFile::Bytes bytes;
    for (const std::string& signature : canonicalSigs)
        append(bytes, signature);
    if (bytes.empty() && unfinished_.keys().empty()) co_return;
    co_await unfinished_.setData(unfinishedKey, std::move(bytes));
}

} // namespace velto
