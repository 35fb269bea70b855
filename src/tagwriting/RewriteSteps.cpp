#include "tagwriting/RewriteSteps.hpp"

#include "media/Export.hpp"
#include "platform/core/Error.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/PathParts.hpp"
#include "tagwriting/CarriedFrames.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/mp3/FileBytes.hpp"
#include "tagwriting/mp3/ID3TagEditor.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <algorithm>
#include <array>
#include <chrono>

namespace velto {

namespace {

/// What a write that was stopped leaves: it zeroes the head, or makes room of zeros, before the audio moves.
bool isTorn(const id3::FileBytes& file) {
    std::array<std::uint8_t, 10> head{};
    const std::size_t got = file.read(head, 0);
    return std::all_of(head.begin(), head.begin() + static_cast<std::ptrdiff_t>(got),
                       [](std::uint8_t byte) { return byte == 0; });
}

/// A header with room after it may be all that has reached the disk of a tag.
bool hasEmptyTag(const id3::FileBytes& file) {
    const auto data = id3::readTag(file);
    return data && std::all_of(data->begin() + id3::tagHeaderSize, data->end(),
                               [](std::uint8_t byte) { return byte == 0; });
}

FileState stateOfMP3(const std::filesystem::path& path, const std::filesystem::path& backupPath) {
    using id3::FileBytes;
    using id3::ID3TagEditor;
    try {
        const FileBytes file(path, FileBytes::Mode::read);
        if (isTorn(file)) return FileState::torn;
        const FileBytes backup(backupPath, FileBytes::Mode::read);
        const auto tag = ID3TagEditor::read(file);
        if (path == backupPath && hasEmptyTag(file)) return FileState::changed;
        // A power cut may have put some blocks of a new tag on the disk and not others, whatever their order
        // was: the header alone proves nothing.
        const bool saysTheSame = carriedFrames(tag.value_or(id3::ID3Tag())) ==
                                 carriedFrames(ID3TagEditor::read(backup).value_or(id3::ID3Tag()));
        if (saysTheSame && ID3TagEditor::sameAudio(file, backup)) return FileState::whole;
        return FileState::changed;
    } catch (const std::exception&) {
        return FileState::torn;
    }
}

/// A new file comes by a rename here, whole: one that opens and has other audio was made by somebody else.
FileState stateOfMedia(const std::filesystem::path& file, const std::filesystem::path& backup) {
    try {
        (void)media::openAsset(file);
        return media::sameAudio(file, backup) ? FileState::whole : FileState::changed;
    } catch (const std::exception&) {
        return FileState::torn;
    }
}

/// Longer than any drive is away for. A file that is not found may have been removed by its user, or its
/// drive is not mounted: an empty folder is there then, or none.
constexpr std::chrono::hours missingFor{24 * 90};

/// Whether the file came back from its backup.
bool settleOutstanding(const std::filesystem::path& file, RewriteJournal& journal, Date now) {
    const auto turn = journal.waitForTurn(file);
    const RewritePaths paths(file);
    const bool isRestored = settleLeftOver(paths, fileCheckFor(file)) == LeftOver::restored;
    std::error_code ignored;
    std::filesystem::remove(paths.temporary, ignored);
    if (files::exists(file) || now - journal.noteMissing(file, now) > missingFor) journal.strike(file);
    return isRestored;
}

} // namespace

std::filesystem::path resolvedFile(const std::filesystem::path& file) {
    std::error_code error;
    auto resolved = std::filesystem::canonical(file, error);
    if (!error) return resolved;
    const auto isAbsent = [](const std::error_code& code) {
        return code == std::errc::no_such_file_or_directory || code == std::errc::not_a_directory;
    };
    if (!isAbsent(error)) throw SystemError(error.value(), "Cannot find", file.string());
    const auto folder = std::filesystem::canonical(file.parent_path(), error);
    if (error && !isAbsent(error)) throw SystemError(error.value(), "Cannot find", file.string());
    const RewritePaths paths(folder / file.filename());
    // In this order: a rewrite under way has the one or the other in the folder, the file when it is over.
    if (!error && (files::isRegularFile(paths.backup) || files::exists(paths.file))) return paths.file;
    throw ServiceError(ServiceError::Case::fileNotFound, file.string());
}

FileCheck fileCheckFor(const std::filesystem::path& file) {
    return lowercasedExtension(file.native()) == "mp3" ? stateOfMP3 : stateOfMedia;
}

std::size_t recoverInterruptedRewrites(RewriteJournal& journal, CrashReporter& crashReporter, Date now) {
    for (const auto& temporary : journal.leftTemporaries()) {
        std::error_code failure;
        std::filesystem::remove(temporary, failure);
        if (!failure) journal.strike(temporary);
    }
    std::size_t restored = 0;
    for (const auto& file : journal.outstanding()) {
        try {
            restored += settleOutstanding(file, journal, now) ? 1 : 0;
        } catch (const std::exception& failure) {
            log::line("⚠️ [METADATA] {} could not be looked after: {}", file.filename().string(),
                      describe(failure));
            crashReporter.recordError(failure);
        }
    }
    return restored;
}

} // namespace velto
