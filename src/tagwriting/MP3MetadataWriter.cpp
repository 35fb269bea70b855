#include "id3/ID3Genre.hpp"
#include "id3/ID3TagBuilder.hpp"
#include "platform/log/Log.hpp"
#include "tagwriting/CarriedFrames.hpp"
#include "tagwriting/GenreText.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/RewriteSteps.hpp"
#include "tagwriting/mp3/FileBytes.hpp"
#include "tagwriting/mp3/ID3TagEditor.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace velto {

namespace {

using namespace id3;

/// A version 2.3 tag with the frames that a rewrite carries over.
ID32v3TagBuilder carriedOver(const ID3Tag& old) {
    ID32v3TagBuilder builder;
    builder.frames = carriedFrames(old);
    return builder;
}

/// Reads the written file again: its tag says what was meant and its audio is the backup's.
void prove(const ID3Tag& meant, const RewritePaths& paths) {
    auto expected = meant.frames;
    if (const auto* genre = meant.frame<ID3FrameGenre>(FrameName::genre))
        expected[FrameName::genre] = genreOf({genreText(*genre, meant.properties.version)});
    const FileBytes file(paths.file, FileBytes::Mode::read);
    const auto written = ID3TagEditor::read(file);
    if (!written || written->frames != expected) throw Error("The written tag does not read as it was meant");
    if (!ID3TagEditor::sameAudio(file, FileBytes(paths.backup, FileBytes::Mode::read)))
        throw Error("The audio of the written file is not that of its backup");
}

/// Refuses a file that a tag in front of it would hide: an MP4 file that only calls itself MP3 plays as it
/// is, and what is at the head as a tag of an unknown kind says what the song is.
void refuseForeignHead(const FileBytes& file) {
    std::array<std::uint8_t, 8> head{};
    constexpr std::string_view mp4 = "ftyp";
    const bool isMp4 =
        file.read(head, 0) == head.size() && std::equal(mp4.begin(), mp4.end(), head.begin() + 4);
    if (isMp4 || hasForeignTag(file)) throw ID3TagEditorError(ID3TagEditorError::Case::invalidFileFormat);
}

/// `newTag` makes the tag to write from the one in the file.
template <typename MakeTag>
void rewriteTag(const std::filesystem::path& file, RewriteJournal& journal, MakeTag newTag) {
    const auto resolved = resolvedFile(file);
    GuardedRewrite guard(resolved, journal, fileCheckFor(resolved));
    const ID3Tag old = ID3TagEditor::read(resolved).value_or(ID3Tag());
    if (hidesCarriedFrames(old)) throw Error("The tag holds frames that are encrypted or damaged");
    // A file that may not be written fails here, while it is still itself and not its backup.
    refuseForeignHead(FileBytes(resolved, FileBytes::Mode::readWrite));
    const ID3Tag tag = newTag(old);
    guard.copyToBackup();
    // Mostly only the head of the file is written; its audio stays where it is on the disk, so that a power
    // cut cannot reach it, and one sync at the end does. A sync of the backup in front of every write would
    // cost as much as all the rest (each new copy has to find its blocks first); it is paid if the audio
    // moves.
    ID3TagEditor::write(tag, resolved, std::nullopt, [&] { guard.syncBackup(); });
    guard.sync();
    prove(tag, guard.paths());
    guard.finish();
}

void writeGenres(const std::vector<std::string>& genres, const std::filesystem::path& file, bool append,
                 RewriteJournal& journal) {
    std::string text;
    rewriteTag(file, journal, [&](const ID3Tag& old) {
        const auto* genre = ID3TagContentReader(old).genre();
        const std::string existing = genre ? genre->description.value_or("") : "";
        text = mergedGenreText(genres, existing, append);
        return carriedOver(old).genre({std::nullopt, text}).build();
    });
    log::line("✅ [MP3] {} genre tags to {}: '{}'", append ? "Appended" : "Wrote", file.filename().string(),
              text);
}

} // namespace

MP3MetadataWriter::MP3MetadataWriter(Executors executors, CrashReporter& crashReporter,
                                     RewriteJournal& journal)
    : executors_(std::move(executors))
    , crashReporter_(crashReporter)
    , journal_(journal) {}

Task<void> MP3MetadataWriter::writeGenreTags(std::vector<std::string> genres, std::filesystem::path file,
                                             bool append) {
    auto work = [this, genres = std::move(genres), file = std::move(file), append] {
        runRewrite(crashReporter_, file, [&] { writeGenres(genres, file, append, journal_); });
    };
    co_await offload(executors_,
                     std::move(work)); // not a temporary: GCC 12 destroys those of a co_await twice
}

Task<void> MP3MetadataWriter::clearGenreTags(std::filesystem::path file) {
    auto work = [this, file = std::move(file)] {
        runRewrite(crashReporter_, file, [&] {
            rewriteTag(file, journal_, [](const ID3Tag& old) { return carriedOver(old).build(); });
            log::line("✅ [MP3] Cleared genre tags from {}", file.filename().string());
        });
    };
    co_await offload(executors_, std::move(work));
}

} // namespace velto
