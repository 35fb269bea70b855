#pragma once

#include "scanning/FilesystemScanner.hpp"
#include "scanning/Scanner.hpp"
#include "store/Entities.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto {

/// A file of the store that lies somewhere else now.
struct MovedFile {
    FileItemRef record;
    std::size_t result; ///< what the scan read at its new place
};

/// The records of a library whose files a scan has not seen, and what became of those: some have moved, the
/// others are missing. Three steps: made on the pool, `gather` on the main actor, `matchMoves` on the pool.
/// Refers to the results, which stay as they are until the three are done.
class UnseenFiles {
  public:
    explicit UnseenFiles(const std::vector<ProcessResult>& results);

    /// Finds the records, in turns that give way. Those at or below `unread` are not among them: nobody knows
    /// where their files are.
    Task<void> gather(ModelContext& modelContext, LibraryRef library, const UnreadPlaces& unread);

    /// A record and a new file of the same song are one file that moved if they have the same inode, or else
    /// the same size, and if no other record and no other new file has them too.
    void matchMoves();

    /// Frees what only the steps need.
    void forgetSteps();

    [[nodiscard]] const std::vector<MovedFile>& moved() const { return moved_; }

    /// The records that have not moved, those that were missing before included.
    [[nodiscard]] const std::vector<FileItemRef>& gone() const { return gone_; }

    /// How many of the library's records were not missing before this scan, how many of those were seen, and
    /// how many would be missing after it.
    [[nodiscard]] std::size_t presentBefore() const { return presentBefore_; }

    [[nodiscard]] std::size_t seenAgain() const { return seenAgain_; }

    [[nodiscard]] std::size_t newlyGone() const { return newlyGone_; }

  private:
    /// What matching needs of a record or of a new file, copied so that no object is asked off its actor.
    struct Candidate {
        std::string signature; ///< canonicalSig; empty of a file that was refused
        std::int64_t sizeBytes;
        std::uint64_t fileNumber; ///< 0: unknown
        std::size_t index;        ///< in `unseen_` or in the results
        bool isMatched = false;
    };

    struct UnseenRecord {
        FileItemRef record;
        bool wasMissing;
        bool hasMoved = false;
    };

    [[nodiscard]] std::vector<Candidate> newFiles() const;
    template <typename Key>
    void matchBy(std::vector<Candidate>& newFiles, const Key& key);

    const std::vector<ProcessResult>& results_;
    std::unordered_map<std::string_view, std::size_t> resultsByPath_;
    std::vector<bool> isKnown_; ///< by result: a record has its path
    std::vector<UnseenRecord> unseen_;
    std::vector<Candidate> candidates_; ///< of the unseen records
    std::vector<MovedFile> moved_;
    std::vector<FileItemRef> gone_;
    std::size_t presentBefore_ = 0;
    std::size_t seenAgain_ = 0;
    std::size_t newlyGone_ = 0;
};

} // namespace velto
