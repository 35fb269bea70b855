#pragma once

#include <filesystem>
#include <memory>
#include <vector>

namespace velto {

/// Remembers which files are being rewritten, so that a start after a crash knows where to look. A small file
/// that is only appended to: one record when a rewrite begins, one when it has ended, both without a sync
/// (they outlive the process, which is what kills rewrites; after a power cut the left-over backup itself is
/// found by the next write to that file). A journal that cannot be written is ignored: it must not stop a
/// rewrite. Any thread may call; one process at a time may hold a journal.
class RewriteJournal {
  public:
    /// Notes nothing.
    RewriteJournal();
    /// Reads what is outstanding in `path` and compacts it. The file is made by the first note; damaged
    /// records are left out.
    explicit RewriteJournal(std::filesystem::path path);
    ~RewriteJournal();
    RewriteJournal(const RewriteJournal&) = delete;
    RewriteJournal& operator=(const RewriteJournal&) = delete;

    /// The rewrite of `file` (absolute) begins; call it before the backup is made.
    void note(const std::filesystem::path& file);
    /// The rewrite has ended, one way or the other, and no backup is left.
    void strike(const std::filesystem::path& file);

    /// Files noted and not struck off, this run's included.
    [[nodiscard]] std::vector<std::filesystem::path> outstanding() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace velto
