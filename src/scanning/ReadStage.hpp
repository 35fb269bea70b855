#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/TaskHandle.hpp"
#include "scanning/Scanner.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <vector>

namespace velto {

namespace media {
class ReadAhead;
}

/// Reads the discovered files of a scan: a few workers take blocks of neighbouring files in the order of
/// discovery, and every result lands in its file's place, so that what follows sees one order whoever was
/// quicker. Holds references: what it is given outlives `run`.
class ReadStage {
  public:
    /// A block is what lies between two steps of the progress.
    static constexpr std::size_t filesPerBlock = 50;

    /// Told on the main actor, in order: how many files in a row have been read, and the last one of them.
    using Progress = std::function<void(std::size_t processed, const ProcessResult& last)>;

    /// `extractor` and `signatures` are used by several threads at once.
    ReadStage(AudioMetadataExtractor& extractor, FileSignatureGenerator& signatures, Executors executors,
              CancellationToken token, Progress progress);

    /// How many workers read: as many as the machine has processors, eight at most.
    [[nodiscard]] static std::size_t workers();

    /// Moves `files` into `results`, read; for the pool. A file's failure is its result. Throws
    /// CancellationError as soon as the workers have noticed that the scan was cancelled.
    Task<void> run(std::vector<FileSystemInfo>& files, std::vector<ProcessResult>& results);

  private:
    struct Reading;

    Task<void> startWorkers(Reading& reading);
    Task<bool> work(Reading& reading);
    Task<void> readFile(Reading& reading, std::size_t index);
    void blockRead(Reading& reading, std::size_t block);

    AudioMetadataExtractor& extractor_;
    FileSignatureGenerator& signatures_;
    Executors executors_;
    CancellationToken token_;
    Progress progress_;
};

} // namespace velto
