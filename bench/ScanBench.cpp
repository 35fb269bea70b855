// What a scan costs beside the least that the same work can cost: `scan_bench FOLDER` walks the folder with a
// bare loop and with the scanner, each in a process of its own, and prints times, ratios and peak memory.

#include "platform/files/ChildProcess.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"
#include "scanning/FileFinder.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "store/CanonicalSignature.hpp"
#include "store/StoreRepositories.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <fileref.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tag.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>

namespace {

using namespace velto;
namespace fs = std::filesystem;

double seconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Outcome {
    double seconds = 0;
    double cpuSeconds = 0; ///< of the process and its children: what a busy machine does not distort
    long files = 0;
    long peakKilobytes = 0;
};

double cpuSeconds(int who) {
    struct ::rusage usage {};

    ::getrusage(who, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

double cpuSeconds() {
    return cpuSeconds(RUSAGE_SELF) + cpuSeconds(RUSAGE_CHILDREN);
}

void measure(Outcome& outcome, const std::function<void()>& work) {
    const double before = cpuSeconds();
    outcome.seconds = seconds(work);
    outcome.cpuSeconds = cpuSeconds() - before;
}

/// Repeats a short piece of work and keeps the best.
void measureBest(Outcome& outcome, const std::function<void()>& work) {
    Outcome once;
    for (int i = 0; i < 7; ++i) {
        measure(once, work);
        if (i == 0 || once.seconds < outcome.seconds) outcome.seconds = once.seconds;
        if (i == 0 || once.cpuSeconds < outcome.cpuSeconds) outcome.cpuSeconds = once.cpuSeconds;
    }
}

/// Runs `measurement` in a child process, so that each has its own peak memory.
Outcome inChild(const std::function<Outcome()>& measurement) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    if (::fork() == 0) {
        Outcome outcome = measurement();

        struct ::rusage usage {};

        ::getrusage(RUSAGE_SELF, &usage);
        outcome.peakKilobytes = usage.ru_maxrss;
        const bool isWritten = ::write(ends[1], &outcome, sizeof outcome) == sizeof outcome;
        log::flush();
        ::_exit(isWritten ? 0 : 1);
    }
    ::close(ends[1]);
    Outcome outcome;
    const bool isRead = ::read(ends[0], &outcome, sizeof outcome) == sizeof outcome;
    ::close(ends[0]);
    ::wait(nullptr);
    if (!isRead) throw std::runtime_error("a measurement failed");
    return outcome;
}

void exec(sqlite3* database, const char* sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(database));
}

void insertSong(sqlite3_stmt* insert, const fs::path& path) {
    const TagLib::FileRef file(path.c_str());
    const TagLib::Tag* tag = file.isNull() ? nullptr : file.tag();
    const auto bind = [&](int at, const std::string& text) {
        sqlite3_bind_text(insert, at, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    };
    bind(1, path.string());
    if (tag != nullptr) {
        bind(2, tag->artist().to8Bit(true));
        bind(3, tag->title().to8Bit(true));
        bind(4, tag->album().to8Bit(true));
        bind(5, tag->genre().to8Bit(true));
        sqlite3_bind_int(insert, 6,
                         file.audioProperties() ? file.audioProperties()->lengthInMilliseconds() : 0);
    }
    sqlite3_step(insert);
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
}

Outcome bareLoop(const fs::path& root, const fs::path& store) {
    Outcome outcome;
    measure(outcome, [&] {
        sqlite3* database = nullptr;
        sqlite3_open(store.c_str(), &database);
        exec(database,
             "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
             "CREATE TABLE songs(path TEXT, artist TEXT, title TEXT, album TEXT, genre TEXT, ms INTEGER);"
             "BEGIN");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(database, "INSERT INTO songs VALUES(?,?,?,?,?,?)", -1, &insert, nullptr);
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (!entry.is_regular_file()) continue;
            insertSong(insert, entry.path());
            ++outcome.files;
        }
        exec(database, "COMMIT");
        sqlite3_finalize(insert);
        sqlite3_close(database);
    });
    return outcome;
}

class NoReporter final : public CrashReporter {
  public:
    void log(std::string_view) override {}

    void recordError(const std::exception&) override {}

    void setUserID(const std::optional<std::string>&) override {}
};

/// The scanner over a store that stays between measurements.
struct Bench {
    explicit Bench(const fs::path& store)
        : container(model::ModelContainer::create(storeSchema(), {.storePath = store / "velto.store"}))
        , logFile(log::addFileSink(store / "velto.log")) {
        ModelContext& context = container->mainContext();
        ScannerDependencies dependencies;
        dependencies.metadataExtractor = std::make_shared<SimpleMetadataExtractor>(reporter);
        dependencies.signatureGenerator = std::make_shared<SHA256SignatureGenerator>();
        dependencies.filesystemScanner = std::make_shared<SimpleFilesystemScanner>();
        dependencies.libraryRepository = libraries =
            std::make_shared<SwiftDataLibraryRepository>(context, clock);
        dependencies.trackRepository = std::make_shared<SwiftDataTrackRepository>(context, nullptr);
        dependencies.fileRepository = std::make_shared<SwiftDataFileRepository>(context, clock);
        dependencies.scanRunRepository = std::make_shared<SwiftDataScanRunRepository>(context, clock);
        scanner = std::make_unique<ConcurrentScanner>(dependencies, context, nullptr, runtime.executors(),
                                                      clock, reporter);
    }

    LibraryRef library(const fs::path& root) {
        return runtime.run(libraries->upsertLibrary("bench", root.string(), std::nullopt, std::nullopt));
    }

    test::TestRuntime runtime;
    SystemClock clock;
    NoReporter reporter;
    std::unique_ptr<model::ModelContainer> container;
    log::SinkHandle logFile;
    std::shared_ptr<SwiftDataLibraryRepository> libraries;
    std::unique_ptr<ConcurrentScanner> scanner;
};

Outcome scan(const fs::path& root, const fs::path& store) {
    Bench bench(store);
    const LibraryRef library = bench.library(root);
    Outcome outcome;
    ScanRunRef run;
    measure(outcome, [&] { run = bench.runtime.run(bench.scanner->scanLibrary(library)); });
    outcome.files = static_cast<long>(run->totalSeen);
    return outcome;
}

Outcome check(const fs::path& root, const fs::path& store) {
    Bench bench(store);
    const LibraryRef library = bench.library(root);
    bench.container->mainContext().load();
    Outcome outcome;
    measureBest(outcome, [&] {
        outcome.files =
            static_cast<long>(bench.runtime.run(bench.scanner->findUnindexedFiles(library)).size());
    });
    return outcome;
}

Outcome bareFind(const fs::path& root) {
    std::vector<std::string> arguments = findArguments({root.string(), std::nullopt, std::nullopt});
    arguments.emplace(arguments.begin(), "/usr/bin/find");
    Outcome outcome;
    measureBest(outcome, [&] {
        const auto output = files::runProcess(arguments);
        outcome.files = static_cast<long>(output.standardOutput.size());
    });
    return outcome;
}

Outcome signatures() {
    constexpr long pairs = 500'000;
    FileSystemInfo info;
    info.relPath = "Some Artist/An Album of Theirs/01 Some Artist - The Title of a Song.mp3";
    const SHA256SignatureGenerator generator;
    std::size_t sum = 0;
    Outcome outcome{.files = 2 * pairs};
    measure(outcome, [&] {
        for (long i = 0; i < pairs; ++i) {
            info.sizeBytes = i;
            sum += generator.quickSig(info).size();
            sum += canonicalSig("Some Artist", "The Title of a Song", "An Album of Theirs",
                                static_cast<double>(i) / 7)
                       .size();
        }
    });
    if (sum == 0) throw std::runtime_error("no signatures");
    return outcome;
}

void print(const char* name, const Outcome& outcome, const Outcome& floor) {
    fmt::print("{:<28} {:>9.1f} ms {:>6.2f}x {:>9.1f} ms cpu {:>6.2f}x {:>8} {:>8.1f} MB\n", name,
               outcome.seconds * 1'000, outcome.seconds / floor.seconds, outcome.cpuSeconds * 1'000,
               outcome.cpuSeconds / floor.cpuSeconds, outcome.files,
               static_cast<double>(outcome.peakKilobytes) / 1'024);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fmt::print(stderr, "usage: scan_bench FOLDER\n");
        return 2;
    }
    const fs::path root = fs::canonical(argv[1]);
    const test::TemporaryFolder store;
    const auto bare = [&](const char* name) { return inChild([&] { return bareLoop(root, store / name); }); };
    bare("warm-up"); // the cache, for both
    const Outcome loop = bare("bare"), scanned = inChild([&] { return scan(root, store.path()); });
    const Outcome rescanned = inChild([&] { return scan(root, store.path()); });
    print("bare loop", loop, loop);
    print("scan", scanned, loop);
    print("rescan, unchanged", rescanned, loop);
    const Outcome find = inChild([&] { return bareFind(root); });
    print("bare find (files: bytes)", find, find);
    print("check (files: missing)", inChild([&] { return check(root, store.path()); }), find);
    const Outcome signed_ = inChild(signatures);
    fmt::print("quickSig and canonicalSig: {:.0f} a second of cpu\n",
               static_cast<double>(signed_.files) / signed_.cpuSeconds);
}
