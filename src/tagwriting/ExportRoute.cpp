#include "tagwriting/ExportRoute.hpp"

#include "media/Export.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/PathParts.hpp"
#include "tagwriting/GenreText.hpp"
#include "tagwriting/RewriteSteps.hpp"

#include <algorithm>
#include <fstream>
#include <optional>

namespace velto {

namespace {

using media::MetadataItem;

/// Whether an item says the genre, in whatever way its container does.
bool isGenre(const MetadataItem& item) {
    if (item.commonKey == media::common_key::type) return true;
    if (!item.identifier) return false;
    const std::string& identifier = *item.identifier;
    return identifier.find("genre") != identifier.npos || identifier.find("gnre") != identifier.npos ||
           identifier == media::identifier::id3ContentType || identifier.ends_with("/©gen") ||
           identifier == media::identifier::iTunesUserGenre;
}

/// The text of the first genre item.
std::string genreText(const std::filesystem::path& file) {
    const auto items = media::openAsset(file).items;
    const auto found = std::find_if(items.begin(), items.end(), isGenre);
    return found != items.end() && found->text() != nullptr ? *found->text() : "";
}

/// The new genre. Which field it goes to is the container's: the media service puts it there.
MetadataItem genreItem(const std::string& text) {
    MetadataItem item;
    item.value = text;
    return item;
}

std::filesystem::path newTemporaryFile(const std::string& extension) {
    std::string uuid;
    std::ifstream("/proc/sys/kernel/random/uuid") >> uuid;
    if (uuid.empty()) throw Error("No name for a temporary file");
    return std::filesystem::temp_directory_path() / (uuid + "." + extension);
}

/// Removes an exported file that has not taken a place; if the process is killed, the next start does.
class TemporaryFile {
  public:
    TemporaryFile(std::filesystem::path file, RewriteJournal& journal)
        : path(std::move(file))
        , journal_(journal) {
        journal_.noteTemporary(path);
    }

    ~TemporaryFile() {
        std::error_code failure;
        std::filesystem::remove(path, failure);
        if (!failure) journal_.strike(path);
    }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path path;

  private:
    RewriteJournal& journal_;
};

/// Reads the file that is there now: its genre says what was meant and its audio is the backup's.
void prove(const RewritePaths& paths, const std::optional<std::string>& text) {
    const auto items = media::openAsset(paths.file).items;
    const auto saysIt = [&](const MetadataItem& item) {
        return isGenre(item) && item.text() != nullptr && *item.text() == *text;
    };
    // An empty text is not an item in some containers.
    const bool isMeant = text && !text->empty()
                             ? std::any_of(items.begin(), items.end(), saysIt)
                             : std::all_of(items.begin(), items.end(), [](const auto& item) {
                                   return !isGenre(item) || (item.text() != nullptr && item.text()->empty());
                               });
    if (!isMeant) throw Error("The written genre does not read as it was meant");
    if (!media::sameAudio(paths.file, paths.backup))
        throw Error("The audio of the written file is not that of its backup");
}

} // namespace

void exportWithGenres(const std::vector<std::string>& genres, const std::filesystem::path& file, bool append,
                      RewriteJournal& journal) {
    const auto resolved = resolvedFile(file);
    GuardedRewrite guard(resolved, journal, fileCheckFor(resolved));
    const std::string text = mergedGenreText(genres, append ? genreText(resolved) : "", append);
    const TemporaryFile exported(newTemporaryFile(lowercasedExtension(file.native())), journal);
    media::exportPassthrough(resolved, exported.path, isGenre, genreItem(text));
    guard.moveToBackup();
    guard.takePlace(exported.path);
    guard.sync();
    prove(guard.paths(), text);
    guard.finish();
    log::line("✅ [METADATA] {} genre tags to {}: '{}'", append ? "Appended" : "Wrote",
              file.filename().string(), text);
}

void exportWithoutGenres(const std::filesystem::path& file, RewriteJournal& journal) {
    const auto resolved = resolvedFile(file);
    GuardedRewrite guard(resolved, journal, fileCheckFor(resolved));
    const TemporaryFile exported(guard.paths().temporary, journal);
    media::exportPassthrough(resolved, exported.path, isGenre, std::nullopt);
    guard.copyToBackup();
    guard.takePlace(exported.path);
    guard.sync();
    prove(guard.paths(), std::nullopt);
    guard.finish();
    log::line("✅ [AVFoundation] Cleared genre from {}", file.filename().string());
}

} // namespace velto
