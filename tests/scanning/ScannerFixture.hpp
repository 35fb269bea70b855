#pragma once

#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "support/ManualClock.hpp"
#include "support/RecordingCrashReporter.hpp"
#include "support/Sql.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace velto::test {

/// A WAV file of four samples without tags: artist and title come from its name.
inline std::string smallWav() {
    std::string wav(
        "RIFF\x2c\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1f\0\0\x80\x3e\0\0\x02\0\x10\0data\x08\0\0\0", 44);
    return wav + std::string(8, '\x01');
}

/// The real extractor with a step in front of each file, on the pool.
class SteppingExtractor final : public AudioMetadataExtractor {
  public:
    explicit SteppingExtractor(CrashReporter& reporter)
        : real_(reporter) {}

    std::function<Task<void>(int number, std::string path)> before; ///< number counts from 1
    std::optional<AudioMetadata> instead;                           ///< nothing is read then
    std::optional<std::string> genre;                               ///< added to what is read

    Task<AudioMetadata> extractMetadata(std::filesystem::path file) override {
        const int number = ++count_;
        if (before) co_await before(number, file.string());
        if (instead) co_return *instead;
        AudioMetadata metadata = co_await real_.extractMetadata(file);
        if (genre) metadata.genre = genre;
        co_return metadata;
    }

    [[nodiscard]] const std::set<std::string>& supportedExtensions() const override {
        return real_.supportedExtensions();
    }

    [[nodiscard]] int count() const { return count_; }

  private:
    SimpleMetadataExtractor real_;
    std::atomic<int> count_ = 0;
};

/// A real store, a real folder of music and the scanner over them.
class ScannerTest : public testing::Test {
  protected:
    ScannerTest() {
        std::filesystem::create_directory(music);
        scanner = makeScanner(nullptr);
        library = runtime.run(libraries->upsertLibrary("Music", music.string(), std::nullopt, std::nullopt));
    }

    std::unique_ptr<ConcurrentScanner> makeScanner(const GenreTextParser* parser) {
        ScannerDependencies dependencies;
        dependencies.metadataExtractor = extractor;
        dependencies.signatureGenerator = std::make_shared<SHA256SignatureGenerator>();
        dependencies.filesystemScanner = std::make_shared<SimpleFilesystemScanner>();
        dependencies.libraryRepository = libraries;
        dependencies.scanRunRepository =
            std::make_shared<ScanRunRepository>(context(), clock, runtime.executors());
        return std::make_unique<ConcurrentScanner>(dependencies, context(), parser, runtime.executors(),
                                                   clock, reporter);
    }

    /// Goes on with another store.
    void reopen(const std::filesystem::path& store) {
        scanner.reset();
        container = model::ModelContainer::create(storeSchema(), {.storePath = store});
        libraries = std::make_shared<LibraryRepository>(context(), clock, runtime.executors());
        scanner = makeScanner(nullptr);
        library = context().fetch<Library>().front();
    }

    ModelContext& context() { return container->mainContext(); }

    void addSong(const std::string& name) { folder.write("music/" + name, smallWav()); }

    void addSongs(int count) {
        for (int i = 1; i <= count; ++i)
            addSong("Artist - Song " + std::to_string(i) + ".wav");
    }

    ScanRunRef scan() {
        clock.advance(Seconds(60));
        FinishedScan finished = runtime.run(scanner->scanLibrary(library, terms));
        orphans = finished.orphanedTracks;
        return finished.run;
    }

    /// The text of the failure that the scan ends with.
    std::string failureOfScan() {
        try {
            scan();
        } catch (const Error& error) {
            return error.errorDescription();
        }
        return "no failure";
    }

    std::map<std::string, FileItemRef> filesByPath() {
        std::map<std::string, FileItemRef> files;
        for (const FileItemRef& file : library->files)
            files.emplace(file->relPath, file);
        return files;
    }

    TestRuntime runtime;
    TemporaryFolder folder;
    std::filesystem::path music = folder / "music";
    ManualClock clock{runtime.main()};
    RecordingCrashReporter reporter;
    std::unique_ptr<model::ModelContainer> container =
        model::ModelContainer::create(storeSchema(), {.storePath = folder / "velto.store"});
    std::shared_ptr<SteppingExtractor> extractor = std::make_shared<SteppingExtractor>(reporter);
    std::shared_ptr<LibraryRepository> libraries =
        std::make_shared<LibraryRepository>(context(), clock, runtime.executors());
    std::unique_ptr<ConcurrentScanner> scanner;
    LibraryRef library;
    ScanTerms terms;                  ///< of the next scan
    std::vector<std::string> orphans; ///< of the last one
};

/// The counts of a run: seen, new, changed, missing, errors.
inline std::vector<std::int64_t> counts(const ScanRunRef& run) {
    return {run->totalSeen, run->newCount, run->changedCount, run->missingCount, run->errorCount};
}

inline std::ptrdiff_t linesWith(const log::Capture& log, std::string_view text) {
    const auto lines = log.lines();
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

} // namespace velto::test
