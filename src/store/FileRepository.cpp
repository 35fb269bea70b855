#include "store/FileRepository.hpp"

#include "platform/concurrency/Executors.hpp"
#include "platform/model/InBackground.hpp"

namespace velto {

Task<FilesByPath> FileRepository::filesByPath(LibraryRef library) {
    FilesByPath found;
    found.reserve(library->files.size());
    const auto keep = [&](const FileItemRef& file) {
        if (file->library == library) found.emplace(file->relPath, file);
    };
    co_await model::forEachInTurns<FileItem>(modelContext_, keep);
    co_return found;
}

Task<void> FileRepository::updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                                 std::optional<std::int64_t> bitrateKbps,
                                                 std::optional<std::int64_t> samplerateHz,
                                                 std::optional<std::int64_t> channels) {
    FileItemFields& fields = file->edit();
    fields.durationSec = durationSec;
    fields.bitrateKbps = bitrateKbps;
    fields.samplerateHz = samplerateHz;
    fields.channels = channels;
    fields.lastScannedAt = clock_.now();
    pendingSaves = true;
    co_return;
}

Task<void> FileRepository::markMissing(const std::vector<FileItemRef>& gone) {
    Turn turn;
    for (const FileItemRef& file : gone) {
        if (turn.isOver()) {
            co_await yieldNow();
            turn = Turn();
        }
        if (file->isDeleted() || file->status == FileStatus::missing) continue;
        file->edit().status = FileStatus::missing;
        pendingSaves = true;
    }
}

} // namespace velto
