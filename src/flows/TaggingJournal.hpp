#pragma once

#include "flows/TaggingSelection.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/files/ValueFile.hpp"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace velto {

/// What a tagging run owes the user across the end of the process: which batches are asked for and not stored
/// yet, and what the last run could not tag. A batch is noted here before it is paid for and goes once its
/// tags are in the store, so that after a kill the next start can name what may be lost. Two small files,
/// each replaced as a whole. Main actor; the files are read and written on the pool.
class TaggingJournal {
  public:
    using BatchNumber = std::uint64_t;

    /// In that folder, which exists. The left-over batches are read here.
    TaggingJournal(const std::filesystem::path& folder, const Executors& executors);

    /// The batch's tracks, each by its name. Throws Error if that cannot be written: what cannot be
    /// remembered must not be paid for.
    Task<BatchNumber> begin(std::vector<std::string> names);
    /// The batch is stored, or was refused. Throws Error if that cannot be written; the next start names the
    /// batch then.
    Task<void> end(BatchNumber batch);

    /// Names in the log every batch that an earlier process left. Once; further calls find nothing. Throws
    /// Error if that cannot be written.
    Task<void> reportLeftOvers();

    /// Empty if there was none, or if its file makes no sense.
    Task<LastRun> lastRun() const;
    /// The canonicalSigs of what a run that has begun at `start` is for, or at its end of what it could not
    /// tag. Throws Error if that cannot be written.
    Task<void> setLastRun(Date start, std::vector<std::string> untagged);

  private:
    struct LastRunFile;

    Executors executors_;
    ValueFile inFlight_;
    std::shared_ptr<LastRunFile> lastRun_;
    std::vector<std::string> leftOver_; ///< keys of batches that an earlier process left
    BatchNumber last_ = 0;
};

} // namespace velto
