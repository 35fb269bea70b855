#include "scanning/ReadStage.hpp"

#include "media/ReadAhead.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/MetadataExtractor.hpp"

#include <algorithm>
#include <thread>
#include <utility>

namespace velto {

/// One run. The lists are the workers', each at its own indices; the rest of the fields say whose they are.
struct ReadStage::Reading {
    std::vector<FileSystemInfo>& files;
    std::vector<ProcessResult>& results;
    media::ReadAhead& readAhead;
    std::vector<bool> isBlockRead;         ///< main actor
    std::size_t blocksInARow = 0;          ///< main actor
    std::atomic<std::size_t> nextBlock{0}; ///< any worker

    [[nodiscard]] std::size_t end(std::size_t block) const {
        return std::min((block + 1) * filesPerBlock, files.size());
    }
};

ReadStage::ReadStage(AudioMetadataExtractor& extractor, FileSignatureGenerator& signatures,
                     Executors executors, CancellationToken token, Progress progress)
    : extractor_(extractor)
    , signatures_(signatures)
    , executors_(std::move(executors))
    , token_(std::move(token))
    , progress_(std::move(progress)) {}

std::size_t ReadStage::workers() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 8);
}

Task<void> ReadStage::run(std::vector<FileSystemInfo>& files, std::vector<ProcessResult>& results) {
    token_.check();
    std::vector<std::string> paths;
    paths.reserve(files.size());
    for (const FileSystemInfo& file : files)
        paths.push_back(file.absPath);
    media::ReadAhead readAhead(std::move(paths));
    results = std::vector<ProcessResult>(files.size());
    const std::size_t blocks = (files.size() + filesPerBlock - 1) / filesPerBlock;
    Reading reading{files, results, readAhead, std::vector<bool>(blocks)};
    co_await runOn(executors_.main, startWorkers(reading));
    files = std::vector<FileSystemInfo>(); // `= {}` would keep its room
}

Task<void> ReadStage::startWorkers(Reading& reading) {
    std::vector<TaskHandle<bool>> started;
    for (std::size_t i = 0; i < std::min(workers(), reading.isBlockRead.size()); ++i)
        started.push_back(TaskHandle<bool>::start(executors_, executors_.pool, work(reading), token_));
    // All of them, before a failure of one leaves the others without what they refer to.
    for (const auto& worker : started)
        co_await worker.finished();
    for (const auto& worker : started)
        co_await worker.value();
}

Task<bool> ReadStage::work(Reading& reading) {
    while (true) {
        const std::size_t block = reading.nextBlock++;
        if (block >= reading.isBlockRead.size()) co_return true;
        for (std::size_t i = block * filesPerBlock; i < reading.end(block); ++i) {
            token_.check();
            reading.readAhead.reached(i);
            co_await readFile(reading, i);
        }
        // Not waited for: a worker that goes on keeps its processor. The worker's own end comes to the main
        // actor after all that it has posted there, so `reading` is still there.
        asio::post(executors_.main, [this, &reading, block] { blockRead(reading, block); });
    }
}

Task<void> ReadStage::readFile(Reading& reading, std::size_t index) {
    ProcessResult& result = reading.results[index];
    result.fileInfo = std::make_unique<FileSystemInfo>(std::move(reading.files[index]));
    result.relPath = result.fileInfo->relPath;
    try {
        result.metadata = packed(co_await extractor_.extractMetadata(result.fileInfo->absPath));
    } catch (...) {
        result.error = std::current_exception();
    }
    result.quickSig = signatures_.quickSig(*result.fileInfo);
}

void ReadStage::blockRead(Reading& reading, std::size_t block) {
    reading.isBlockRead[block] = true;
    while (reading.blocksInARow < reading.isBlockRead.size() && reading.isBlockRead[reading.blocksInARow]) {
        const std::size_t processed = reading.end(reading.blocksInARow++);
        progress_(processed, reading.results[processed - 1]);
    }
}

} // namespace velto
