#include "scanning/ScanRepositories.hpp"

#include "platform/model/InBackground.hpp"

namespace velto {

Task<FilesByPath> ScanRepositories::filesByPath(LibraryRef library) {
    FilesByPath found;
    found.reserve(library->files.size());
    const auto keep = [&](const FileItemRef& file) {
        if (file->library == library) found.emplace(file->relPath, file);
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, keep);
    co_return found;
}

Task<void> ScanRepositories::saveIfDirty() {
    if (!files.pendingSaves && !tracks.pendingSaves) co_return;
    files.pendingSaves = false;
    tracks.pendingSaves = false;
    try {
        co_await model::saveInBackground(modelContext_, executors_);
    } catch (...) {
        files.pendingSaves = true;
        throw;
    }
}

} // namespace velto
