#pragma once

#include "platform/core/Date.hpp"

#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

namespace velto {

/// Remembers which files are being rewritten, so that a start after a crash knows where to look. A small file
/// that is only appended to: one record when a rewrite begins, one when it has ended, both without a sync
/// (they outlive the process, which is what kills rewrites; after a power cut the left-over backup itself is
/// found by the next write to that file). A journal that cannot be written is ignored: it must not stop a
/// rewrite. It also gives each file's rewrites their turns. Any thread may call; one process at a time may
/// hold a journal.
class RewriteJournal {
  public:
    /// The right to rewrite one file, until it is destroyed; the journal outlives it. Move-only.
    class Turn {
      public:
        Turn(Turn&& other) noexcept
            : journal_(std::exchange(other.journal_, nullptr))
            , file_(std::move(other.file_)) {}

        Turn& operator=(Turn&&) = delete;
        ~Turn();

      private:
        friend class RewriteJournal;

        Turn(RewriteJournal& journal, std::filesystem::path file)
            : journal_(&journal)
            , file_(std::move(file)) {}

        RewriteJournal* journal_;
        std::filesystem::path file_;
    };

    /// Notes nothing.
    RewriteJournal();
    /// Reads what is outstanding in `path` and compacts it. The file is made by the first note; damaged
    /// records are left out.
    explicit RewriteJournal(std::filesystem::path path);
    ~RewriteJournal();
    RewriteJournal(const RewriteJournal&) = delete;
    RewriteJournal& operator=(const RewriteJournal&) = delete;

    /// Blocks while another turn of `file` lasts. Whoever has one runs on a thread of its own and takes no
    /// second one, so that it ends however many threads wait.
    [[nodiscard]] Turn waitForTurn(const std::filesystem::path& file);

    /// Blocks while any turn lasts, for `longest` at most: for a process that is about to end.
    void waitForTurnsToEnd(Seconds longest) const;

    /// The rewrite of `file` (absolute) begins; call it before the backup is made.
    void note(const std::filesystem::path& file);
    /// `file` (absolute) is of no use to the next run: it removes it.
    void noteTemporary(const std::filesystem::path& file);
    /// An outstanding file is not where it was; since when.
    Date noteMissing(const std::filesystem::path& file, Date now);
    /// The rewrite has ended, one way or the other, and no backup is left; or the temporary file is gone.
    void strike(const std::filesystem::path& file);

    /// Files noted and not struck off, this run's included.
    [[nodiscard]] std::vector<std::filesystem::path> outstanding() const;
    /// Temporary files that earlier runs noted and did not strike off.
    [[nodiscard]] std::vector<std::filesystem::path> leftTemporaries() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace velto
