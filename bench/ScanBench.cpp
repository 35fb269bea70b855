// What a scan costs beside the least that the same work can cost: `scan_bench FOLDER` walks the folder with a
// bare loop and with the scanner, each in a process of its own. `scan_bench FOLDER scan` scans it once, for a
// profiler.

#include "Measure.hpp"

#include "platform/files/ChildProcess.hpp"
#include "platform/files/Descriptor.hpp"
#include "platform/log/Log.hpp"
#include "scanning/ConcurrentScanner.hpp"
#include "scanning/FileSignatureGenerator.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "store/CanonicalSignature.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <fcntl.h>
#include <fileref.h>
#include <fmt/format.h>
#include <malloc.h>
#include <sqlite3.h>
#include <tag.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

using namespace velto;
using namespace velto::bench;
namespace fs = std::filesystem;

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

Cost bareLoop(const fs::path& root, const fs::path& store) {
    fs::remove(store);
    return costOf([&] {
        sqlite3* database = nullptr;
        sqlite3_open(store.c_str(), &database);
        exec(database,
             "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
             "CREATE TABLE songs(path TEXT, artist TEXT, title TEXT, album TEXT, genre TEXT, ms INTEGER);"
             "BEGIN");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(database, "INSERT INTO songs VALUES(?,?,?,?,?,?)", -1, &insert, nullptr);
        for (const auto& entry : fs::recursive_directory_iterator(root))
            if (entry.is_regular_file()) insertSong(insert, entry.path());
        exec(database, "COMMIT");
        sqlite3_finalize(insert);
        sqlite3_close(database);
    });
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
            std::make_shared<LibraryRepository>(context, clock, runtime.executors());
        dependencies.scanRunRepository =
            std::make_shared<ScanRunRepository>(context, clock, runtime.executors());
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
    std::shared_ptr<LibraryRepository> libraries;
    std::unique_ptr<ConcurrentScanner> scanner;
};

/// Into the store of that folder: the first time is a scan, the second a rescan.
Cost scan(const fs::path& root, const fs::path& store) {
    Bench bench(store);
    const LibraryRef library = bench.library(root);
    ScanRunRef run;
    Cost cost = costOf([&] { run = bench.runtime.run(bench.scanner->scanLibrary(library)).run; });
    cost.count = static_cast<double>(run->totalSeen);
    return cost;
}

Cost check(const fs::path& root, const fs::path& store) {
    Bench bench(store);
    const LibraryRef library = bench.library(root);
    bench.container->mainContext().load();
    return cheapestOf(5, [&] {
        if (!bench.runtime.run(bench.scanner->findUnindexedFiles(library)).empty())
            throw std::runtime_error("the library is not as it was scanned");
    });
}

Cost bareFind(const fs::path& root) {
    std::vector<std::string> arguments{"/usr/bin/find", root.string(), "-type", "f", "("};
    for (const char* extension : {"*.mp3", "*.m4a", "*.aif", "*.aiff", "*.wav", "*.flac"})
        arguments.insert(arguments.end(), {"-iname", extension, "-o"});
    arguments.back() = ")";
    return cheapestOf(5, [&] { static_cast<void>(files::runProcess(arguments)); });
}

Cost signatures() {
    constexpr long pairs = 500'000;
    FileSystemInfo info;
    info.relPath = "Some Artist/An Album of Theirs/01 Some Artist - The Title of a Song.mp3";
    const SHA256SignatureGenerator generator;
    std::size_t sum = 0;
    Cost cost = costOf([&] {
        for (long i = 0; i < pairs; ++i) {
            info.sizeBytes = i;
            sum += generator.quickSig(info).size();
            sum += canonicalSig("Some Artist", "The Title of a Song", "An Album of Theirs",
                                static_cast<double>(i) / 7)
                       .size();
        }
    });
    if (sum == 0) throw std::runtime_error("no signatures");
    cost.count = 2 * pairs;
    return cost;
}

void measureWarm(const fs::path& root) {
    constexpr int rounds = 7;
    const test::TemporaryFolder bareStore;
    static_cast<void>(inChild([&] { return bareLoop(root, bareStore / "songs"); })); // the cache, for both
    Series bare;
    Series scans;
    Series rescans;
    Series finds;
    Series checks;
    for (int i = 0; i < rounds; ++i) {
        const test::TemporaryFolder store;
        bare.push_back(inChild([&] { return bareLoop(root, bareStore / "songs"); }));
        scans.push_back(inChild([&] { return scan(root, store.path()); }));
        rescans.push_back(inChild([&] { return scan(root, store.path()); }));
        finds.push_back(inChild([&] { return bareFind(root); }));
        checks.push_back(inChild([&] { return check(root, store.path()); }));
    }
    const auto files = static_cast<std::size_t>(scans.front().count);
    report(fmt::format("scan of {} files, warm cache; floor: bare TagLib + SQLite loop", files), scans, bare,
           1.0);
    report(fmt::format("rescan of {} files, nothing changed; same floor", files), rescans, bare, 1.15);
    report(fmt::format("check of {} files, nothing changed; floor: bare find", files), checks, finds, 2.0);
    const auto larger = [](const Cost& a, const Cost& b) { return a.peakBytes < b.peakBytes; };
    report("peak memory of the scan", std::max_element(scans.begin(), scans.end(), larger)->peakBytes / 1e6,
           Hold::atMost, 60 + 0.003 * static_cast<double>(files), "MB");
}

/// Makes the kernel forget everything that it holds of the disk; without the right to, the files' content
/// alone.
const char* makeCold(const fs::path& root) {
    ::sync();
    if (std::ofstream drop("/proc/sys/vm/drop_caches"); drop && drop << 3 && drop.flush())
        return "all caches dropped";
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file()) continue;
        const files::Descriptor file(::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
        ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
    }
    return "file contents dropped";
}

void measureCold(const fs::path& root) {
    constexpr int rounds = 5;
    const test::TemporaryFolder bareStore;
    Series bare;
    Series scans;
    const char* how = "";
    for (int i = 0; i < rounds; ++i) {
        const test::TemporaryFolder store;
        how = makeCold(root);
        bare.push_back(inChild([&] { return bareLoop(root, bareStore / "songs"); }));
        how = makeCold(root);
        scans.push_back(inChild([&] { return scan(root, store.path()); }));
    }
    report(fmt::format("scan, cold cache ({}); floor: bare loop, as cold", how), scans, bare, 0.5);
}

/// A folder with links to the music, as often as it takes; gone with this.
class Links {
  public:
    Links(const fs::path& music, std::size_t count)
        : root_(music.parent_path() / "links") {
        fs::remove_all(root_);
        std::vector<fs::path> songs;
        for (const auto& entry : fs::recursive_directory_iterator(music))
            if (entry.is_regular_file() && entry.path().has_extension()) songs.push_back(entry.path());
        for (std::size_t i = 0; i < count; ++i) {
            const fs::path folder =
                root_ / std::to_string(i / songs.size()) / std::to_string(i % songs.size() / 100);
            if (i % 100 == 0 || i % songs.size() == 0) fs::create_directories(folder);
            fs::create_hard_link(songs[i % songs.size()], folder / songs[i % songs.size()].filename());
        }
    }

    Links(const Links&) = delete;
    Links& operator=(const Links&) = delete;

    ~Links() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    [[nodiscard]] const fs::path& root() const { return root_; }

  private:
    fs::path root_;
};

void measureMemory(const fs::path& music, std::size_t files, double boundMegabytes) {
    const Links links(music, files);
    const test::TemporaryFolder store;
    const Cost cost = inChild([&] { return scan(links.root(), store.path()); });
    if (cost.count != static_cast<double>(files)) throw std::runtime_error("not all links were scanned");
    report(fmt::format("peak memory of a scan of {} files (links)", files), cost.peakBytes / 1e6,
           Hold::atMost, boundMegabytes, "MB");
}

} // namespace

int main(int argc, char** argv) {
    ::mallopt(M_ARENA_MAX, 2); // as the program does
    if (argc != 2 && !(argc == 3 && argv[2] == std::string("scan"))) {
        fmt::print(stderr, "usage: scan_bench FOLDER [scan]\n");
        return 2;
    }
    const fs::path root = fs::canonical(argv[1]);
    if (argc == 3) {
        const test::TemporaryFolder store;
        const Cost cost = scan(root, store.path());
        fmt::print("{:.1f} ms, {:.1f} ms of cpu\n", cost.seconds * 1e3, cost.cpuSeconds * 1e3);
        return 0;
    }
    measureWarm(root);
    measureCold(root);
    measureMemory(root, 100'000, 200);
    measureMemory(root, 1'000'000, 1'500);
    const Cost cost = inChild(signatures);
    report("quickSig and canonicalSig", cost.count / cost.cpuSeconds, Hold::atLeast, 1e6, "a second");
}
