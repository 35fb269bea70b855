#include "tagwriting/MetadataWriter.hpp"

#include "platform/text/PathParts.hpp"
#include "tagwriting/ExportRoute.hpp"
#include "tagwriting/RewriteSteps.hpp"

namespace velto {

namespace {

/// What is refused before anything is touched.
void checkForExport(const std::filesystem::path& file) {
    const auto resolved = resolvedFile(file);
    const std::string extension = lowercasedExtension(file.native());
    if (!SimpleMetadataWriter::supportedExtensions().contains(extension))
        throw ServiceError(ServiceError::Case::unsupportedFileType, extension);
    if (std::filesystem::exists(resolved) && !std::filesystem::is_regular_file(resolved))
        throw ServiceError(ServiceError::Case::metadataWriteFailed, file.string(), "Not a regular file");
}

} // namespace

SimpleMetadataWriter::SimpleMetadataWriter(Executors executors, CrashReporter& crashReporter,
                                           RewriteJournal& journal)
    : executors_(executors)
    , crashReporter_(crashReporter)
    , journal_(journal)
    , mp3Writer_(std::move(executors), crashReporter, journal) {}

const std::set<std::string>& SimpleMetadataWriter::supportedExtensions() {
    static const std::set<std::string> extensions{"mp3", "m4a", "aac", "mp4", "aiff", "aif"};
    return extensions;
}

Task<void> SimpleMetadataWriter::writeGenreTags(std::vector<std::string> genres, std::filesystem::path file,
                                                bool append) {
    if (lowercasedExtension(file.native()) == "mp3") {
        co_await mp3Writer_.writeGenreTags(std::move(genres), std::move(file), append);
        co_return;
    }
    auto work = [this, genres = std::move(genres), file = std::move(file), append] {
        runRewrite(crashReporter_, file, [&] {
            checkForExport(file);
            exportWithGenres(genres, file, append, journal_);
        });
    };
    co_await offload(executors_,
                     std::move(work)); // not a temporary: GCC 12 destroys those of a co_await twice
}

Task<void> SimpleMetadataWriter::clearGenreTags(std::filesystem::path file) {
    if (lowercasedExtension(file.native()) == "mp3") {
        co_await mp3Writer_.clearGenreTags(std::move(file));
        co_return;
    }
    auto work = [this, file = std::move(file)] {
        runRewrite(crashReporter_, file, [&] {
            checkForExport(file);
            exportWithoutGenres(file, journal_);
        });
    };
    co_await offload(executors_, std::move(work));
}

} // namespace velto
