#include "scanning/UnseenFiles.hpp"

#include "platform/model/InBackground.hpp"
#include "store/CanonicalSignature.hpp"

namespace velto {

UnseenFiles::UnseenFiles(const std::vector<ProcessResult>& results)
    : results_(results)
    , isKnown_(results.size()) {
    resultsByPath_.reserve(results.size());
    for (std::size_t i = 0; i < results.size(); ++i)
        resultsByPath_.emplace(results[i].relPath, i);
}

Task<void> UnseenFiles::gather(ModelContext& modelContext, LibraryRef library, const UnreadPlaces& unread) {
    const auto look = [&](const FileItemRef& file) {
        if (file->library != library) return;
        const bool wasMissing = file->status == FileStatus::missing;
        if (!wasMissing) ++presentBefore_;
        if (const auto result = resultsByPath_.find(file->relPath); result != resultsByPath_.end()) {
            isKnown_[result->second] = true;
            ++seenAgain_;
            return;
        }
        if (unread.contain(file->relPath)) return;
        candidates_.push_back({file->track ? file->track->canonicalSig : std::string(), file->sizeBytes,
                               static_cast<std::uint64_t>(file->inode.value_or(0)), unseen_.size()});
        unseen_.push_back({file, wasMissing});
    };
    co_await model::forEachInTurns<FileItem>(modelContext, look);
}

std::vector<UnseenFiles::Candidate> UnseenFiles::newFiles() const {
    std::vector<Candidate> files;
    for (std::size_t i = 0; i < results_.size(); ++i) {
        if (isKnown_[i] || !results_[i].fileInfo) continue;
        std::string signature;
        if (!results_[i].error) {
            const AudioMetadata metadata = unpacked(results_[i].metadata);
            signature = canonicalSig(metadata.artist, metadata.title, metadata.album, metadata.durationSec);
        }
        const FileSystemInfo& info = *results_[i].fileInfo;
        files.push_back({std::move(signature), info.sizeBytes, info.fileNumber, i});
    }
    return files;
}

/// Matches those whose `key` is the same and that no other one has on either side; an empty key is nobody's.
template <typename Key>
void UnseenFiles::matchBy(std::vector<Candidate>& newFiles, const Key& key) {
    struct Bearers {
        Candidate* record = nullptr;
        Candidate* file = nullptr;
        std::size_t records = 0;
        std::size_t files = 0;
    };

    std::unordered_map<std::string, Bearers> bearers;
    for (Candidate& record : candidates_) {
        if (record.isMatched || key(record).empty()) continue;
        Bearers& found = bearers[key(record)];
        found.record = &record;
        ++found.records;
    }
    for (Candidate& file : newFiles) {
        const auto found = file.isMatched ? bearers.end() : bearers.find(key(file));
        if (found == bearers.end()) continue;
        found->second.file = &file;
        ++found->second.files;
    }
    for (auto& [text, found] : bearers) {
        if (found.records != 1 || found.files != 1) continue;
        found.record->isMatched = found.file->isMatched = true;
        UnseenRecord& unseen = unseen_[found.record->index];
        unseen.hasMoved = true;
        moved_.push_back({unseen.record, found.file->index});
    }
}

void UnseenFiles::matchMoves() {
    if (!candidates_.empty()) {
        std::vector<Candidate> files = newFiles();
        matchBy(files, [](const Candidate& each) {
            return each.fileNumber == 0 ? "" : std::to_string(each.fileNumber) + "|" + each.signature;
        });
        matchBy(files,
                [](const Candidate& each) { return std::to_string(each.sizeBytes) + "|" + each.signature; });
    }
    for (const UnseenRecord& each : unseen_) {
        if (each.hasMoved) continue;
        gone_.push_back(each.record);
        if (!each.wasMissing) ++newlyGone_;
    }
}

void UnseenFiles::forgetSteps() {
    resultsByPath_ = std::unordered_map<std::string_view, std::size_t>();
    isKnown_ = std::vector<bool>();
    unseen_ = std::vector<UnseenRecord>();
    candidates_ = std::vector<Candidate>();
}

} // namespace velto
