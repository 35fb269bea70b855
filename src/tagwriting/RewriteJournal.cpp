#include "tagwriting/RewriteJournal.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/AtomicReplace.hpp"
#include "platform/files/Descriptor.hpp"
#include "platform/log/Log.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace velto {

namespace {

// A record: its kind, the path, a zero byte (paths may hold anything else). That of a missing file has the
// seconds since 1970 in front of the path. Files hold it: do not change.
namespace kind {
constexpr char begun = '+';
constexpr char ended = '-';
constexpr char temporary = '*';
constexpr char missing = '?';
} // namespace kind

constexpr std::int64_t latestDate = std::int64_t{1} << 40; // far beyond any; a date in microseconds holds it
constexpr off_t startAfreshAtBytes = off_t{64} << 10;

struct Entry {
    bool isTemporary = false;
    bool isOfEarlierRun = false;
    std::optional<std::int64_t> missingSince{}; ///< seconds since 1970
};

using Entries = std::map<std::filesystem::path, Entry>;

std::string record(char recordKind, const std::filesystem::path& file, const std::string& prefix = {}) {
    return recordKind + prefix + file.native() + '\0';
}

std::string missingRecord(const std::filesystem::path& file, std::int64_t since) {
    return record(kind::missing, file, std::to_string(since));
}

void apply(std::string_view text, Entries& entries) {
    const auto slash = text.find('/');
    if (slash == text.npos || slash == 0) return;
    const std::filesystem::path file(text.substr(slash));
    const std::string_view number = text.substr(1, slash - 1);
    if (text[0] == kind::missing) {
        std::int64_t since = 0;
        const auto [stop, error] = std::from_chars(number.data(), number.data() + number.size(), since);
        const auto found = entries.find(file);
        const bool isDate =
            error == std::errc() && stop == number.data() + number.size() && since >= 0 && since < latestDate;
        if (isDate && found != entries.end()) found->second.missingSince = since;
        return;
    }
    if (!number.empty()) return;
    if (text[0] == kind::begun || text[0] == kind::temporary)
        entries[file] = {.isTemporary = text[0] == kind::temporary, .isOfEarlierRun = true};
    if (text[0] == kind::ended) entries.erase(file);
}

Entries readEntries(std::string_view content) {
    Entries entries;
    while (true) {
        const auto end = content.find('\0');
        if (end == content.npos) return entries; // a record that was cut short has not happened
        apply(content.substr(0, end), entries);
        content.remove_prefix(end + 1);
    }
}

} // namespace

struct RewriteJournal::State {
    std::filesystem::path path;
    mutable std::mutex mutex;
    std::condition_variable turnEnded;
    std::set<std::filesystem::path> inTurn;
    Entries entries;
    velto::files::Descriptor descriptor;

    void append(const std::string& text) {
        if (path.empty()) return;
        if (!descriptor)
            descriptor = velto::files::Descriptor(
                ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        if (!descriptor) return;
        (void)!::write(descriptor.get(), text.data(), text.size());
    }

    template <typename Accepts>
    std::vector<std::filesystem::path> paths(Accepts accepts) const {
        const std::lock_guard lock(mutex);
        std::vector<std::filesystem::path> found;
        for (const auto& [file, entry] : entries)
            if (accepts(entry)) found.push_back(file);
        return found;
    }
};

RewriteJournal::RewriteJournal()
    : state_(std::make_unique<State>()) {}

RewriteJournal::RewriteJournal(std::filesystem::path path)
    : RewriteJournal() {
    state_->path = std::move(path);
    std::ifstream in(state_->path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(in), {});
    if (content.empty()) return;
    state_->entries = readEntries(content);
    std::string compact;
    for (const auto& [file, entry] : state_->entries) {
        compact += record(entry.isTemporary ? kind::temporary : kind::begun, file);
        if (entry.missingSince) compact += missingRecord(file, *entry.missingSince);
    }
    try {
        velto::files::replaceFile(state_->path, compact);
    } catch (const Error& error) {
        log::line("⚠️ [METADATA] The journal of rewrites cannot be written: {}", describe(error));
    }
}

RewriteJournal::~RewriteJournal() = default;

RewriteJournal::Turn::~Turn() {
    if (journal_ == nullptr) return;
    {
        const std::lock_guard lock(journal_->state_->mutex);
        journal_->state_->inTurn.erase(file_);
    }
    journal_->state_->turnEnded.notify_all();
}

RewriteJournal::Turn RewriteJournal::waitForTurn(const std::filesystem::path& file) {
    std::unique_lock lock(state_->mutex);
    state_->turnEnded.wait(lock, [&] { return !state_->inTurn.contains(file); });
    state_->inTurn.insert(file);
    return {*this, file};
}

void RewriteJournal::waitForTurnsToEnd(Seconds longest) const {
    std::unique_lock lock(state_->mutex);
    state_->turnEnded.wait_for(lock, longest, [&] { return state_->inTurn.empty(); });
}

void RewriteJournal::note(const std::filesystem::path& file) {
    const std::lock_guard lock(state_->mutex);
    state_->entries[file] = {};
    state_->append(record(kind::begun, file));
}

void RewriteJournal::noteTemporary(const std::filesystem::path& file) {
    const std::lock_guard lock(state_->mutex);
    state_->entries[file] = {.isTemporary = true};
    state_->append(record(kind::temporary, file));
}

Date RewriteJournal::noteMissing(const std::filesystem::path& file, Date now) {
    const std::lock_guard lock(state_->mutex);
    auto& since = state_->entries[file].missingSince;
    if (!since) {
        since = std::chrono::floor<std::chrono::seconds>(now).time_since_epoch().count();
        state_->append(missingRecord(file, *since));
    }
    return Date(std::chrono::seconds(*since));
}

void RewriteJournal::strike(const std::filesystem::path& file) {
    const std::lock_guard lock(state_->mutex);
    if (state_->entries.erase(file) == 0) return;
    state_->append(record(kind::ended, file));
    if (state_->descriptor && state_->entries.empty() &&
        ::lseek(state_->descriptor.get(), 0, SEEK_END) > startAfreshAtBytes)
        (void)!::ftruncate(state_->descriptor.get(), 0);
}

std::vector<std::filesystem::path> RewriteJournal::outstanding() const {
    return state_->paths([](const Entry& entry) { return !entry.isTemporary; });
}

std::vector<std::filesystem::path> RewriteJournal::leftTemporaries() const {
    return state_->paths([](const Entry& entry) { return entry.isTemporary && entry.isOfEarlierRun; });
}

} // namespace velto
