#include "tagwriting/GuardedRewrite.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/Sha256.hpp"
#include "platform/log/Log.hpp"
#include "tagwriting/FileCopy.hpp"
#include "tagwriting/mp3/FileBytes.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <exception>
#include <string_view>

namespace velto {

namespace {

using id3::FileBytes;

constexpr std::size_t longestExtension = std::string_view(".replaced99").size();

/// A name that leaves no room for the extension is stood in for by its hash.
std::filesystem::path hidden(const std::filesystem::path& file, std::string_view extension) {
    std::string name = file.filename().string();
    if (1 + name.size() + longestExtension > NAME_MAX) name = files::hexadecimal(files::sha256(name), 16);
    return file.parent_path() / ("." + name + std::string(extension));
}

bool stands(const std::filesystem::path& path) {
    struct ::stat info {};

    return ::lstat(path.c_str(), &info) == 0;
}

void move(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) throw SystemError(errno, "Cannot move", from.string());
}

void removeIfThere(const std::filesystem::path& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw SystemError(errno, "Cannot remove", path.string());
}

/// One rename does both halves of "remove what is there, move the backup back": one of the two is there at
/// every moment. The backup is on the disk before, for the rename may be there sooner than what was written.
void putBack(const RewritePaths& paths) {
    FileBytes(paths.backup, FileBytes::Mode::read).sync();
    forgetCopyMark(paths.backup);
    move(paths.backup, paths.file);
    syncFolder(paths.file.parent_path());
}

/// Gives what is beside the file that stays a name of its own.
std::string keepReplaced(const RewritePaths& paths, const std::filesystem::path& kept) {
    auto name = paths.replaced;
    for (int number = 2; stands(name); ++number)
        name = paths.replaced.string() + std::to_string(number);
    move(kept, name);
    return name.filename().string();
}

/// For a file that stopped growing at the front. Whatever fails, the file stays as it is.
bool takesRoomOut(const std::filesystem::path& path) {
    try {
        FileBytes file(path, FileBytes::Mode::readWrite);
        if (!id3::removeRoom(file)) return false;
        file.sync();
        return true;
    } catch (const std::exception& error) {
        log::line("⚠️ [METADATA] {}: {}", path.filename().string(), describe(error));
        return false;
    }
}

/// A process that dies while it copies leaves the file as it was: the copy is a beginning of it.
bool isPartOf(const std::filesystem::path& backup, const std::filesystem::path& file) {
    const FileBytes part(backup, FileBytes::Mode::read);
    return part.size() > 0 && id3::beginsWith(FileBytes(file, FileBytes::Mode::read), part);
}

/// The backup was never relied upon, the file's audio not touched; but if a power cut cut it short, the
/// file's tag may be half written.
LeftOver settleCutBackup(const RewritePaths& paths, FileCheck check) {
    const auto name = paths.file.filename().string();
    if (isPartOf(paths.backup, paths.file)) {
        removeIfThere(paths.backup);
        log::line("🧹 [METADATA] Removed the backup of {}: the file is whole", name);
        return LeftOver::removed;
    }
    FileState state = check(paths.file, paths.file);
    if (state == FileState::torn && takesRoomOut(paths.file)) {
        log::line("♻️ [METADATA] Took the room for a tag out of {} after an interrupted write", name);
        state = check(paths.file, paths.file);
    }
    const bool isEmpty = FileBytes(paths.backup, FileBytes::Mode::read).size() == 0;
    if (state == FileState::whole || isEmpty) {
        FileBytes(paths.file, FileBytes::Mode::read).sync();
        removeIfThere(paths.backup);
        log::line("🧹 [METADATA] Removed the backup of {}, which was cut short: the file {}", name,
                  state == FileState::torn ? "has a damaged tag" : "reads");
        return LeftOver::removed;
    }
    log::line(
        "⚠️ [METADATA] The tag of {} was damaged by an interruption, its backup cut short: what there is "
        "of the backup is kept as {}",
        name, keepReplaced(paths, paths.backup));
    return LeftOver::removed;
}

} // namespace

RewritePaths::RewritePaths(std::filesystem::path target)
    : file(std::move(target))
    , backup(hidden(file, ".backup"))
    , making(hidden(file, ".making"))
    , replaced(hidden(file, ".replaced"))
    , temporary(hidden(file, ".tmp")) {}

LeftOver settleLeftOver(const RewritePaths& paths, FileCheck check) {
    if (stands(paths.making)) removeIfThere(paths.making);
    if (!stands(paths.backup)) return LeftOver::none;
    const auto name = paths.file.filename().string();
    const bool isThere = stands(paths.file);
    if (isThere && !isCompleteCopy(paths.backup)) return settleCutBackup(paths, check);
    const FileState state = isThere ? check(paths.file, paths.backup) : FileState::torn;
    if (state == FileState::whole) {
        FileBytes(paths.file, FileBytes::Mode::read).sync();
        removeIfThere(paths.backup);
        log::line("🧹 [METADATA] Removed the backup of {}: the file is whole", name);
        return LeftOver::removed;
    }
    if (state == FileState::changed)
        log::line("⚠️ [METADATA] {} was changed beside its backup: that version is kept as {}", name,
                  keepReplaced(paths, paths.file));
    putBack(paths);
    log::line("♻️ [METADATA] Restored {} from its backup after an interrupted write", name);
    return LeftOver::restored;
}

GuardedRewrite::GuardedRewrite(const std::filesystem::path& file, RewriteJournal& journal, FileCheck check)
    : paths_(file)
    , journal_(journal)
    , turn_(journal.waitForTurn(file)) {
    journal_.note(file);
    settleLeftOver(paths_, check);
    isSettled_ = true;
}

GuardedRewrite::~GuardedRewrite() {
    try {
        if (hasBackup_) restore();
    } catch (const std::exception& error) {
        log::line("⚠️ [METADATA] {} {}: {}", paths_.file.filename().string(),
                  stands(paths_.backup) ? "could not be restored, its backup stays in the folder"
                                        : "was restored, but its folder could not be synced",
                  describe(error));
    }
    if (isSettled_) journal_.strike(paths_.file);
}

void GuardedRewrite::copyToBackup() {
    isSettled_ = false;
    try {
        if (!copyMarked(paths_.file, paths_.backup)) {
            copyFile(paths_.file, paths_.making);
            FileBytes(paths_.making, FileBytes::Mode::read).sync();
            move(paths_.making, paths_.backup);
        }
    } catch (...) {
        isSettled_ = ::unlink(paths_.making.c_str()) == 0 || errno == ENOENT;
        throw;
    }
    hasBackup_ = true;
}

void GuardedRewrite::syncBackup() {
    FileBytes(paths_.backup, FileBytes::Mode::read).sync();
    syncFolder(paths_.file.parent_path());
}

void GuardedRewrite::moveToBackup() {
    forgetCopyMark(paths_.file); // one that somebody renamed back by hand: it says nothing any more
    move(paths_.file, paths_.backup);
    isSettled_ = false;
    wasMoved_ = true;
    hasBackup_ = true;
}

void GuardedRewrite::takePlace(const std::filesystem::path& replacement) {
    wasMoved_ = true;
    copyAttributes(paths_.backup, replacement);
    const FileBytes made(replacement, FileBytes::Mode::read);
    if (made.size() != FileBytes(paths_.backup, FileBytes::Mode::read).size())
        copyModificationDate(paths_.backup, replacement);
    made.sync();
    if (::rename(replacement.c_str(), paths_.file.c_str()) == 0) return;
    if (errno != EXDEV) throw SystemError(errno, "Cannot move", replacement.string());
    removeIfThere(paths_.temporary);
    try {
        copyFile(replacement, paths_.temporary);
        FileBytes(paths_.temporary, FileBytes::Mode::read).sync();
        move(paths_.temporary, paths_.file);
    } catch (...) {
        (void)::unlink(paths_.temporary.c_str());
        throw;
    }
    removeIfThere(replacement);
}

void GuardedRewrite::sync() {
    if (wasMoved_)
        syncFolder(paths_.file.parent_path()); // the content is on the disk since before the move
    else
        FileBytes(paths_.file, FileBytes::Mode::read).sync();
}

void GuardedRewrite::finish() {
    hasBackup_ = false;
    isSettled_ = ::unlink(paths_.backup.c_str()) == 0;
    if (!isSettled_) log::line("⚠️ [METADATA] {} cannot be removed", paths_.backup.string());
}

void GuardedRewrite::restore() {
    hasBackup_ = false;
    putBack(paths_);
    isSettled_ = true;
}

} // namespace velto
