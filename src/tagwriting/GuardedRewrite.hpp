#pragma once

#include "tagwriting/RewriteJournal.hpp"

#include <filesystem>

namespace velto {

/// How a file compares with the backup that was found with it.
enum class FileState {
    whole,   ///< its tag reads and says what the backup's says but for the genre, the audio is the backup's
    torn,    ///< what a write that stopped on the way leaves
    changed, ///< it reads but says something else: somebody may have changed it since
};

/// Does not throw. If there is no usable backup it is given the file twice and judges it by itself.
using FileCheck = FileState (*)(const std::filesystem::path& file, const std::filesystem::path& backup);

/// Where the hidden copies of a file lie while it is rewritten: all in its folder.
struct RewritePaths {
    std::filesystem::path file;
    std::filesystem::path backup;    ///< "." + name + ".backup"; complete unless its mark says otherwise
    std::filesystem::path making;    ///< a backup on its way if no mark can be had; worth nothing
    std::filesystem::path replaced;  ///< what was found beside the file that stays; never removed by us
    std::filesystem::path temporary; ///< "." + name + ".tmp": a new file that will take the place

    explicit RewritePaths(std::filesystem::path target);
};

/// Keeps the user's file safe through one rewrite. Whatever happens between the constructor and `finish` (an
/// exception, a killed process, a full disk), the file or its complete backup is there, and whoever looks
/// next can tell which of the two to take:
///
///   killed while              the folder then holds               the next look does
///   copying the backup        file, part of a copy                removes the part
///   backup is there           file, backup                        file is whole: removes the backup
///   file is being written     damaged file, backup                puts the backup back
///   file was set aside        backup                              puts the backup back
///   new file is there         new file, backup                    file is whole: removes the backup
///   backup is gone            new file                            strikes it off the journal
///   backup is there, others   changed file, backup                keeps the file as ".NAME.replaced", puts
///   changed the file since                                        the backup back
///
/// A power cut may also cut the backup short if it was not synced. Audio was not moved then:
///
///   backup cut short, file reads                                  removes the backup
///   likewise, room of zeros in front of the tag                   takes the room out, removes the backup
///   likewise, tag does not read                                   keeps the backup as ".NAME.replaced"
///
/// Not thread-safe. Of one file there is one at a time, by the journal's turns: it is made and destroyed by
/// one thread and waits for nothing in between. What cannot be done is a SystemError, but for `finish` and
/// the destructor, which throw nothing and log what fails.
class GuardedRewrite {
  public:
    /// `file` is absolute and no link. Waits until no other rewrite of it is under way, notes it in the
    /// journal and settles what an earlier one left.
    GuardedRewrite(const std::filesystem::path& file, RewriteJournal& journal, FileCheck check);
    /// Puts the backup back if the rewrite has not been finished.
    ~GuardedRewrite();
    GuardedRewrite(const GuardedRewrite&) = delete;
    GuardedRewrite& operator=(const GuardedRewrite&) = delete;

    [[nodiscard]] const RewritePaths& paths() const { return paths_; }

    /// Copies the file, its mode, owner, times and extended attributes to the backup name.
    void copyToBackup();
    /// Puts a copied backup on the disk before the audio of the file itself is moved.
    void syncBackup();
    /// Moves the file itself to the backup name.
    void moveToBackup();
    /// Moves `replacement` (any file system) to the file's name, with the mode, owner, extended attributes
    /// and modification date of the backup and its content on the disk first. A replacement as long as the
    /// backup keeps its own date: size and date are all that a scan looks at, and it must not miss the
    /// change.
    void takePlace(const std::filesystem::path& replacement);
    /// Syncs what was written. Then the caller proves whatever must hold, then it calls `finish`.
    void sync();
    /// The file is proven: removes the backup and strikes the file off.
    void finish();

  private:
    void restore();

    RewritePaths paths_;
    RewriteJournal& journal_;
    RewriteJournal::Turn turn_;
    bool hasBackup_ = false;
    bool isSettled_ = false; ///< nothing is left in the folder, the journal may forget the file
    bool wasMoved_ = false;  ///< names of the folder changed, not only the file's content
};

enum class LeftOver { none, restored, removed };

/// Settles what an interrupted rewrite of a file left: see the table above. A log line if a backup is
/// found. The caller has the file's turn.
LeftOver settleLeftOver(const RewritePaths& paths, FileCheck check);

} // namespace velto
