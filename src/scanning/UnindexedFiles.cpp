#include "scanning/UnindexedFiles.hpp"

#include "platform/log/Log.hpp"
#include "platform/model/InBackground.hpp"
#include "scanning/FileFinder.hpp"
#include "scanning/Glob.hpp"

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

/// Gathered in turns that give way to the main actor.
Task<std::vector<std::string>> relativePaths(ModelContext& modelContext, LibraryRef library) {
    std::vector<std::string> paths;
    paths.reserve(library->files.size());
    const auto add = [&](const FileItemRef& file) {
        if (file->library == library) paths.push_back(file->relPath);
    };
    co_await model::forEachInTurns<FileItem>(modelContext, add);
    co_return paths;
}

std::vector<std::filesystem::path> unknownFiles(const std::string& rootPath,
                                                const std::vector<std::string>& found,
                                                const std::vector<std::string>& known) {
    const std::string prefix = rootPath + "/";
    const std::unordered_set<std::string_view> existing(known.begin(), known.end());
    std::vector<std::filesystem::path> missing;
    for (const std::string& path : found) {
        std::string_view relative = path;
        std::string replaced;
        if (relative.starts_with(prefix)) relative.remove_prefix(prefix.size());
        if (relative.find(prefix) != std::string_view::npos)
            relative = replaced = replaceAll(path, prefix, "");
        if (existing.contains(relative)) continue;
        log::line("🔍 [REFRESH] Missing file: {}", relative);
        missing.emplace_back(path);
    }
    return missing;
}

} // namespace

Task<std::vector<std::filesystem::path>> unindexedFiles(ModelContext& modelContext, Executors executors,
                                                        LibraryRef library) {
    assertMainActor();
    const FindSettings settings{library->rootPath, library->includeGlob, library->excludeGlob};
    const std::string name = library->name;
    const auto find = [&settings] { return findFiles(settings); };
    std::vector<std::string> found = co_await offload(executors, find);
    log::line("🔍 [REFRESH] Found {} files in filesystem for library: {}", found.size(), name);
    std::vector<std::string> known = co_await relativePaths(modelContext, library);
    log::line("🔍 [REFRESH] Found {} files in database", known.size());
    log::line("🔍 [REFRESH] Existing paths: {}", description(known));
    const auto compare = [&] {
        auto missing = unknownFiles(settings.rootPath, found, known);
        found = std::vector<std::string>(); // not on the main actor: there may be many
        known = std::vector<std::string>();
        return missing;
    };
    auto missing = co_await offload(executors, compare);
    log::line("🔍 [REFRESH] Found {} missing files", missing.size());
    co_return missing;
}

} // namespace velto
