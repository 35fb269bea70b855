#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/core/Date.hpp"
#include "platform/log/CrashReporter.hpp"
#include "tagwriting/RewriteJournal.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace velto {

/// Puts genres into the user's audio files and takes them out again. No file is lost and no audio byte
/// changes, whatever fails: a rewrite keeps a hidden backup ("." + name + ".backup", in the file's folder)
/// until the new file has been read again, compared with the backup and synced to the disk. A left-over
/// backup is put back first if the file beside it is not whole. A symbolic link is followed: the file
/// itself is rewritten.
///
/// The writers begin no folder access of their own: the grant of the library that holds the file covers
/// it.
///
/// The operations may be awaited on any executor and block none: their work runs on the pool. They fail with
/// ServiceError alone (fileNotFound, unsupportedFileType, metadataWriteFailed). Any number may run
/// at the same time; those of one file take turns, for its backup has one name.
class AudioMetadataWriter {
  public:
    virtual ~AudioMetadataWriter() = default;

    /// Makes `genres` the file's one genre text: duplicates gone, in ascending order, joined by " - ". With
    /// `append` the pieces of the text in the file are kept beside them. An empty list without
    /// `append` leaves an empty genre text.
    virtual Task<void> writeGenreTags(std::vector<std::string> genres, std::filesystem::path file,
                                      bool append) = 0;

    /// Removes every genre from the file.
    virtual Task<void> clearGenreTags(std::filesystem::path file) = 0;
};

/// MP3 files, over our own ID3 engine, in place: the file keeps its inode, mode, owner and attributes. The
/// new tag is version 2.3 and carries title, artist, album, album artist, track and disc position and front
/// cover over; every other frame of the old tag is gone.
class MP3MetadataWriter final : public AudioMetadataWriter {
  public:
    /// Both references outlive the writer and every operation under way.
    MP3MetadataWriter(Executors executors, CrashReporter& crashReporter, RewriteJournal& journal);

    Task<void> writeGenreTags(std::vector<std::string> genres, std::filesystem::path file,
                              bool append) override;
    Task<void> clearGenreTags(std::filesystem::path file) override;

  private:
    Executors executors_;
    CrashReporter& crashReporter_;
    RewriteJournal& journal_;
};

/// The entry for every kind of file: MP3 goes to MP3MetadataWriter, MP4 and AIFF containers through the media
/// service onto a copy that then takes the file's place. Any other extension fails with unsupportedFileType
/// before anything is touched.
class SimpleMetadataWriter final : public AudioMetadataWriter {
  public:
    /// Both references outlive the writer and every operation under way.
    SimpleMetadataWriter(Executors executors, CrashReporter& crashReporter, RewriteJournal& journal);

    Task<void> writeGenreTags(std::vector<std::string> genres, std::filesystem::path file,
                              bool append) override;
    Task<void> clearGenreTags(std::filesystem::path file) override;

    /// Lower-case extensions without the dot.
    [[nodiscard]] static const std::set<std::string>& supportedExtensions();

  private:
    Executors executors_;
    CrashReporter& crashReporter_;
    RewriteJournal& journal_;
    MP3MetadataWriter mp3Writer_;
};

/// For the start of the program, before anything is written: looks at every file whose rewrite the journal
/// saw begin and not end. Puts the backup back if the file is not whole, removes a backup that is not
/// needed any more, and strikes the file off; a log line for each. A file of which nothing is found (its
/// drive may not be mounted) stays noted for 90 days from the first look. Temporary files of an earlier run
/// are removed. Blocks; a clean journal costs nothing. How many files came back from their backup.
std::size_t recoverInterruptedRewrites(
    RewriteJournal& journal, CrashReporter& crashReporter,
    Date now = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now()));

} // namespace velto
