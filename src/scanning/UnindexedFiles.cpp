#include "scanning/UnindexedFiles.hpp"

#include "platform/files/FileAttributes.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_set>

namespace velto {

namespace {

/// Named in the log line that lists a library's paths, which may have a million of them.
constexpr std::size_t pathsInLogLine = 20;

std::string description(const std::vector<std::string>& paths) {
    std::string text;
    const std::size_t shown = std::min(paths.size(), pathsInLogLine);
    for (std::size_t i = 0; i < shown; ++i)
        text.append(i == 0 ? "\"" : ", \"").append(paths[i]).append("\"");
    if (shown < paths.size()) text += fmt::format(", and {} more", paths.size() - shown);
    return "[" + text + "]";
}

/// The paths of records whose files are not missing, gathered in turns that give way to the main actor.
Task<std::vector<std::string>> relativePaths(ModelContext& modelContext, LibraryRef library) {
    std::vector<std::string> paths;
    paths.reserve(library->files.size());
    const auto add = [&](const FileItemRef& file) {
        if (file->library == library && file->status != FileStatus::missing) paths.push_back(file->relPath);
    };
    co_await model::forEachInTurns<FileItem>(modelContext, add);
    co_return paths;
}

struct Comparison {
    std::vector<std::filesystem::path> unknown;
    bool seesAnyKnown = false;
};

Comparison compare(const std::string& rootPath, const std::vector<std::string>& found,
                   const std::vector<std::string>& known) {
    const std::unordered_set<std::string_view> existing(known.begin(), known.end());
    Comparison comparison;
    for (const std::string& relPath : found) {
        if (existing.contains(relPath)) {
            comparison.seesAnyKnown = true;
            continue;
        }
        const std::filesystem::path path = pathBelow(rootPath, relPath);
        if (!files::identityOf(path)) continue; // a scan does not take what cannot be asked
        log::line("🔍 [REFRESH] Missing file: {}", relPath);
        comparison.unknown.push_back(path);
    }
    return comparison;
}

Task<FolderNames> namesOf(FilesystemScanner& walker, WalkSettings settings, WalkWatch watch) {
    try {
        co_return co_await walker.listNames(settings, std::move(watch));
    } catch (const ServiceError& failure) {
        if (failure.kind() != ServiceError::Case::directoryAccessFailed) throw;
        throw ScannerError::notAccessible(settings.rootPath, failure.underlying());
    }
}

} // namespace

Task<std::vector<std::filesystem::path>> unindexedFiles(ModelContext& modelContext, Executors executors,
                                                        FilesystemScanner& walker, LibraryRef library,
                                                        ScanTerms terms, CancellationToken token) {
    assertMainActor();
    const WalkSettings settings{library->rootPath, library->includeGlob, library->excludeGlob};
    const std::string name = library->name;
    const WalkWatch watch{token, nullptr};
    FolderNames found = co_await runOn(executors.pool, namesOf(walker, settings, watch));
    log::line("🔍 [REFRESH] Found {} files in filesystem for library: {}", found.relPaths.size(), name);
    std::vector<std::string> known = co_await relativePaths(modelContext, library);
    log::line("🔍 [REFRESH] Found {} files in database", known.size());
    log::line("🔍 [REFRESH] Existing paths: {}", description(known));
    const bool isAnyKnown = !known.empty();
    const auto comparing = [&] {
        Comparison comparison = compare(settings.rootPath, found.relPaths, known);
        found = FolderNames(); // not on the main actor: there may be many
        known = std::vector<std::string>();
        return comparison;
    };
    Comparison comparison = co_await offload(executors, comparing);
    if (terms.isOtherDevice && isAnyKnown && !comparison.seesAnyKnown)
        throw ScannerError::notAccessible(settings.rootPath, ScannerError::notMounted);
    log::line("🔍 [REFRESH] Found {} missing files", comparison.unknown.size());
    co_return std::move(comparison.unknown);
}

} // namespace velto
