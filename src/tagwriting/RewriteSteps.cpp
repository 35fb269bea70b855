#include "tagwriting/RewriteSteps.hpp"

#include "platform/log/Log.hpp"
#include "platform/media/Export.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/id3/ID3TagEditor.hpp"

#include <algorithm>

namespace velto {

namespace {

bool isWholeMP3(const std::filesystem::path& file, const std::filesystem::path& backup) {
    try {
        (void)id3::ID3TagEditor::read(file);
        return id3::ID3TagEditor::sameAudio(file, backup);
    } catch (const std::exception&) {
        return false;
    }
}

bool isWholeMedia(const std::filesystem::path& file, const std::filesystem::path& backup) {
    try {
        (void)media::openAsset(file);
        return media::sameAudio(file, backup);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

std::string lowerCaseExtension(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return extension;
}

std::filesystem::path resolvedFile(const std::filesystem::path& file) {
    std::error_code error;
    auto resolved = std::filesystem::canonical(file, error);
    if (!error) return resolved;
    const auto folder = std::filesystem::canonical(file.parent_path(), error);
    if (!error && std::filesystem::is_regular_file(RewritePaths(folder / file.filename()).backup, error))
        return folder / file.filename();
    throw ServiceError(ServiceError::Case::fileNotFound, file.string());
}

WholeCheck wholeCheckFor(const std::filesystem::path& file) {
    return lowerCaseExtension(file) == "mp3" ? isWholeMP3 : isWholeMedia;
}

std::size_t recoverInterruptedRewrites(RewriteJournal& journal, CrashReporter& crashReporter) {
    std::size_t restored = 0;
    for (const auto& file : journal.outstanding()) {
        std::error_code error;
        if (!std::filesystem::is_directory(file.parent_path(), error)) continue;
        try {
            const RewritePaths paths(file);
            if (settleLeftOver(paths, wholeCheckFor(file)) == LeftOver::restored) ++restored;
            std::filesystem::remove(paths.temporary, error);
            journal.strike(file);
        } catch (const std::exception& failure) {
            log::line("⚠️ [METADATA] {} could not be looked after: {}", file.filename().string(),
                      describe(failure));
            crashReporter.recordError(failure);
        }
    }
    return restored;
}

} // namespace velto
