#include "platform/log/Log.hpp"
#include "tagwriting/GenreText.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/RewriteSteps.hpp"
#include "tagwriting/id3/FileBytes.hpp"
#include "tagwriting/id3/ID3Genre.hpp"
#include "tagwriting/id3/ID3TagBuilder.hpp"
#include "tagwriting/id3/ID3TagEditor.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace velto {

namespace {

using namespace id3;

/// A version 2.3 tag with the frames that a rewrite carries over.
ID32v3TagBuilder carriedOver(const ID3Tag& old) {
    const ID3TagContentReader reader(old);
    const auto text = [&](FrameName::Kind name) { return old.frame<ID3FrameWithStringContent>(name); };
    ID32v3TagBuilder builder;
    if (const auto* frame = text(FrameName::title)) builder.title(*frame);
    if (const auto* frame = text(FrameName::artist)) builder.artist(*frame);
    if (const auto* frame = text(FrameName::album)) builder.album(*frame);
    if (const auto* frame = text(FrameName::albumArtist)) builder.albumArtist(*frame);
    if (const auto* frame = reader.trackPosition()) builder.trackPosition(*frame);
    if (const auto* frame = reader.discPosition()) builder.discPosition(*frame);
    if (const auto* frame = reader.attachedPicture(ID3PictureType::frontCover))
        builder.attachedPicture(*frame);
    return builder;
}

/// Reads the written file again: its tag says what was meant and its audio is the backup's.
void prove(const ID3Tag& meant, const RewritePaths& paths) {
    auto expected = meant.frames;
    if (const auto* genre = meant.frame<ID3FrameGenre>(FrameName::genre))
        expected[FrameName::genre] =
            ID3GenreStringAdapter::adapt({ID3GenreStringAdapter::content(*genre, meant.properties.version)});
    const auto written = ID3TagEditor::read(paths.file);
    if (!written || written->frames != expected) throw Error("The written tag does not read as it was meant");
    if (!ID3TagEditor::sameAudio(paths.file, paths.backup))
        throw Error("The audio of the written file is not that of its backup");
}

/// An MP4 file that only calls itself MP3 plays as it is: a tag in front of it would hide it from every
/// player.
bool isMp4(const FileBytes& file) {
    std::array<std::uint8_t, 8> head{};
    constexpr std::string_view name = "ftyp";
    return file.read(head, 0) == head.size() && std::equal(name.begin(), name.end(), head.begin() + 4);
}

/// `newTag` makes the tag to write from the one that stands in the file.
template <typename MakeTag>
void rewriteTag(const std::filesystem::path& file, RewriteJournal& journal, MakeTag newTag) {
    const auto resolved = resolvedFile(file);
    GuardedRewrite guard(resolved, journal, wholeCheckFor(resolved));
    const ID3Tag tag = newTag(ID3TagEditor::read(resolved).value_or(ID3Tag()));
    // A file that may not be written fails here, while it is still itself and not its backup.
    if (isMp4(FileBytes(resolved, FileBytes::Mode::readWrite)))
        throw ID3TagEditorError(ID3TagEditorError::Case::invalidFileFormat);
    guard.copyToBackup();
    // Mostly only the head of the file is written; its audio stays where it is on the disk, so that a power
    // cut cannot reach it, and one sync at the end does. A sync of the backup in front of every write would
    // cost as much as all the rest (each new copy has to find its blocks first); it is paid where the audio
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
