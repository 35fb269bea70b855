#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/files/ValueFile.hpp"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace velto {

/// What a tagging run owes the user across the end of the process: which batches are asked for and not stored
/// yet, and which tracks the last run could not tag. A batch stands here before it is paid for and goes once
/// its tags are in the store, so that after a kill the next start can name what may be lost. Two small files,
/// each replaced as a whole. Main actor.
class TaggingJournal {
  public:
    struct Entry {
        std::string canonicalSig;
        std::string name; ///< "Artist – Title"
    };

    using BatchNumber = std::uint64_t;

    /// In that folder, which exists.
    TaggingJournal(const std::filesystem::path& folder, const Executors& executors);

    /// Throws Error if that cannot be written: what cannot be remembered must not be paid for.
    Task<BatchNumber> begin(std::vector<Entry> batch);
    /// The batch is stored, or was refused. Throws Error if that cannot be written.
    Task<void> end(BatchNumber batch);

    /// Names in the log every batch that an earlier process left, and counts its tracks as unfinished.
    /// Once; further calls find nothing. Throws Error if that cannot be written.
    Task<void> reportLeftOvers();

    /// The canonicalSigs of the tracks that the last run could not tag.
    [[nodiscard]] std::set<std::string> unfinished() const;
    /// Throws Error if that cannot be written.
    Task<void> setUnfinished(const std::vector<std::string>& canonicalSigs);

  private:
    ValueFile inFlight_;
    ValueFile unfinished_;
    std::vector<std::string> leftOver_; ///< keys of batches that an earlier process left
    BatchNumber last_ = 0;
};

} // namespace velto
