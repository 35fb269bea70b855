#include "tagwriting/RewriteJournal.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/AtomicReplace.hpp"
#include "platform/files/Descriptor.hpp"
#include "platform/log/Log.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace velto {

namespace {

// A record: '+' or '-', the path, a zero byte (paths may hold anything else). Files hold it: do not change.
constexpr char begun = '+';
constexpr char ended = '-';
constexpr off_t startAfreshAtBytes = off_t{64} << 10;

std::string record(char kind, const std::filesystem::path& file) {
    std::string text(1, kind);
    text += file.native();
    text += '\0';
    return text;
}

std::set<std::filesystem::path> readOutstanding(std::string_view content) {
    std::set<std::filesystem::path> files;
    while (true) {
        const auto end = content.find('\0');
        if (end == content.npos) return files; // a record that was cut short has not happened
        const std::string_view text = content.substr(0, end);
        content.remove_prefix(end + 1);
        if (text.size() < 2 || text[1] != '/') continue;
        if (text[0] == begun) files.emplace(text.substr(1));
        if (text[0] == ended) files.erase(std::filesystem::path(text.substr(1)));
    }
}

} // namespace

struct RewriteJournal::State {
    std::filesystem::path path;
    mutable std::mutex mutex;
    std::set<std::filesystem::path> files;
    velto::files::Descriptor descriptor;

    void append(const std::string& text) {
        if (path.empty()) return;
        if (!descriptor)
            descriptor = velto::files::Descriptor(
                ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        if (!descriptor) return;
        (void)!::write(descriptor.get(), text.data(), text.size());
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
    state_->files = readOutstanding(content);
    std::string compact;
    for (const auto& file : state_->files)
        compact += record(begun, file);
    try {
        velto::files::replaceFile(state_->path, compact);
    } catch (const Error& error) {
        log::line("⚠️ [METADATA] The journal of rewrites cannot be written: {}", describe(error));
    }
}

RewriteJournal::~RewriteJournal() = default;

void RewriteJournal::note(const std::filesystem::path& file) {
    const std::lock_guard lock(state_->mutex);
    state_->files.insert(file);
    state_->append(record(begun, file));
}

void RewriteJournal::strike(const std::filesystem::path& file) {
    const std::lock_guard lock(state_->mutex);
    if (state_->files.erase(file) == 0) return;
    state_->append(record(ended, file));
    if (state_->descriptor && state_->files.empty() &&
        ::lseek(state_->descriptor.get(), 0, SEEK_END) > startAfreshAtBytes)
        (void)!::ftruncate(state_->descriptor.get(), 0);
}

std::vector<std::filesystem::path> RewriteJournal::outstanding() const {
    const std::lock_guard lock(state_->mutex);
    return {state_->files.begin(), state_->files.end()};
}

} // namespace velto
