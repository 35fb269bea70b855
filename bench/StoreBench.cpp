// What the store costs against bare SQLite doing the same rows: opening and listing, inserting, look-ups
// inside a scan, signatures. Prints one line a measure with its ratio.

#include "platform/log/Log.hpp"
#include "store/BatchRepositories.hpp"
#include "store/CanonicalSignature.hpp"

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

namespace {

using namespace velto;

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double bestOf(int rounds, const std::function<void()>& work) {
    double best = secondsOf(work);
    for (int i = 1; i < rounds; ++i)
        best = std::min(best, secondsOf(work));
    return best;
}

void run(Task<void> task) {
    asio::io_context context;
    asio::co_spawn(context, std::move(task), [](const std::exception_ptr& failure) {
        if (failure) std::rethrow_exception(failure);
    });
    context.run();
}

FileSystemInfo fileInfo(int number) {
    const auto name = fmt::format("Artist {} - Title {}.mp3", number % 1000, number);
    const auto relPath = fmt::format("Artist {}/Album {}/{}", number % 1000, number % 5000, name);
    return {
        "/home/somebody/Music/" + relPath, relPath, name, "mp3", 7'000'000 + number, Date(), std::nullopt};
}

TrackMetadata metadata(int number) {
    TrackMetadata data;
    data.artist = fmt::format("Artist {}", number % 1000);
    data.title = fmt::format("Title {}", number);
    data.album = fmt::format("Album {}", number % 5000);
    data.durationSec = 180.0 + number % 200;
    data.year = 1990 + number % 30;
    data.genre = "Deep House - 1990s";
    return data;
}

using Container = std::unique_ptr<model::ModelContainer>;

Container open(const std::filesystem::path& store) {
    return model::ModelContainer::create(storeSchema(), {store});
}

/// What a scan does for each file, from `first` on.
Task<void> scan(ModelContext* context, LibraryRef library, int first, int count, double* ensure,
                double* upsert) {
    const SystemClock clock;
    BatchOptimizedFileRepository files(*context, clock);
    BatchOptimizedTrackRepository tracks(*context, clock, nullptr);
    co_await tracks.preloadCache();
    co_await files.findFile(library, "");
    for (int i = first; i < first + count; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const auto file = co_await files.ensureFile(library, fileInfo(i));
        const auto middle = std::chrono::steady_clock::now();
        const auto track = co_await tracks.upsertTrack(metadata(i));
        const auto end = std::chrono::steady_clock::now();
        *ensure += std::chrono::duration<double>(middle - start).count();
        *upsert += std::chrono::duration<double>(end - middle).count();
        file->edit().status = FileStatus::ready;
        file->edit().quickSig = "0123456789abcdef";
        co_await tracks.linkFile(file, track);
    }
}

LibraryRef library(ModelContext& context) {
    auto found = context.findUnique<Library>("name", "bench");
    if (!found) {
        found = model::make<Library>("bench", "/home/somebody/Music", std::nullopt, std::nullopt, true);
        context.insert(found);
    }
    return found;
}

/// Rows as a program without a model layer would hold them.
struct BareFile {
    std::int64_t id = 0, sizeBytes = 0, mtime = 0, firstSeen = 0, library = 0, track = 0;
    std::string absPath, relPath, filename, ext, status;
    std::optional<std::string> quickSig, fileHash, errorMsg;
    std::optional<std::int64_t> creationDate, inode, bitrate, samplerate, channels, lastSeen, lastScanned;
    std::optional<double> duration;
};

struct BareTrack {
    std::int64_t id = 0;
    std::string canonicalSig;
    std::optional<std::string> artist, title, album, genre, genres, regions, era;
    std::optional<std::int64_t> trackNumber, year, lastTagged, lastSyncedAt, createdAt;
    std::optional<double> bpm, duration;
};

class BareReader {
  public:
    BareReader(sqlite3* connection, const char* sql) {
        sqlite3_prepare_v2(connection, sql, -1, &statement_, nullptr);
    }

    BareReader(const BareReader&) = delete;
    BareReader& operator=(const BareReader&) = delete;

    ~BareReader() { sqlite3_finalize(statement_); }

    bool step() {
        column_ = 0;
        return sqlite3_step(statement_) == SQLITE_ROW;
    }

    void read(std::string& value) {
        value.assign(reinterpret_cast<const char*>(sqlite3_column_text(statement_, column_)),
                     static_cast<std::size_t>(sqlite3_column_bytes(statement_, column_)));
        ++column_;
    }

    void read(std::int64_t& value) { value = sqlite3_column_int64(statement_, column_++); }

    void read(double& value) { value = sqlite3_column_double(statement_, column_++); }

    template <typename V>
    void read(std::optional<V>& value) {
        if (sqlite3_column_type(statement_, column_) == SQLITE_NULL)
            ++column_;
        else
            read(value.emplace());
    }

    template <typename... V>
    void readAll(V&... values) {
        (read(values), ...);
    }

  private:
    sqlite3_stmt* statement_ = nullptr;
    int column_ = 0;
};

std::size_t bareRead(const std::filesystem::path& store) {
    sqlite3* connection = nullptr;
    sqlite3_open(store.c_str(), &connection);
    std::vector<BareFile> files;
    std::vector<BareTrack> tracks;
    {
        BareReader rows(connection,
                        "SELECT _id, absPath, relPath, filename, ext, sizeBytes, mtime, creationDate, inode, "
                        "quickSig, fileHash, status, durationSec, bitrateKbps, samplerateHz, channels, "
                        "firstSeen, lastSeen, lastScannedAt, errorMsg, library, track FROM FileItem");
        while (rows.step()) {
            auto& f = files.emplace_back();
            rows.readAll(f.id, f.absPath, f.relPath, f.filename, f.ext, f.sizeBytes, f.mtime, f.creationDate,
                         f.inode, f.quickSig, f.fileHash, f.status, f.duration, f.bitrate, f.samplerate,
                         f.channels, f.firstSeen, f.lastSeen, f.lastScanned, f.errorMsg, f.library, f.track);
        }
    }
    {
        BareReader rows(connection,
                        "SELECT _id, artist, title, album, trackNumber, genre, bpm, durationSec, year, "
                        "canonicalSig, lastTagged, lastSyncedAt, createdAt, genres, regions, era FROM Track");
        while (rows.step()) {
            auto& t = tracks.emplace_back();
            rows.readAll(t.id, t.artist, t.title, t.album, t.trackNumber, t.genre, t.bpm, t.duration, t.year,
                         t.canonicalSig, t.lastTagged, t.lastSyncedAt, t.createdAt, t.genres, t.regions,
                         t.era);
        }
    }
    sqlite3_close(connection);
    return files.size() + tracks.size();
}

/// The rows of another store again, in one transaction, by prepared inserts.
void bareInsert(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::remove(to);
    sqlite3* connection = nullptr;
    sqlite3_open(to.c_str(), &connection);
    const auto sql = [&](const std::string& text) {
        sqlite3_exec(connection, text.c_str(), nullptr, nullptr, nullptr);
    };
    sql("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; ATTACH '" + from.string() + "' AS source");
    for (const char* table : {"Track", "FileItem"}) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(
            connection, fmt::format("SELECT sql FROM source.sqlite_schema WHERE name = '{}'", table).c_str(),
            -1, &statement, nullptr);
        sqlite3_step(statement);
        const std::string create = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
        sql(create);
    }
    sql("BEGIN");
    for (const char* table : {"Track", "FileItem"}) {
        sqlite3_stmt* rows = nullptr;
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(connection, fmt::format("SELECT * FROM source.{}", table).c_str(), -1, &rows,
                           nullptr);
        const int columns = sqlite3_column_count(rows);
        std::string places = "?";
        for (int i = 1; i < columns; ++i)
            places += ", ?";
        sqlite3_prepare_v2(connection, fmt::format("INSERT INTO main.{} VALUES ({})", table, places).c_str(),
                           -1, &insert, nullptr);
        while (sqlite3_step(rows) == SQLITE_ROW) {
            for (int i = 0; i < columns; ++i)
                sqlite3_bind_value(insert, i + 1, sqlite3_column_value(rows, i));
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(rows);
        sqlite3_finalize(insert);
    }
    sql("COMMIT");
    sqlite3_close(connection);
}

void report(const std::string& what, double ours, double floor) {
    fmt::print("{:<58} {:>9.3f} ms  floor {:>9.3f} ms  ratio {:.2f}\n", what, ours * 1e3, floor * 1e3,
               ours / floor);
}

void measureListing(const std::filesystem::path& store) {
    std::size_t seen = 0;
    const double ours = bestOf(3, [&] {
        const auto container = open(store);
        for (const auto& file : library(container->mainContext())->files)
            seen += file->track ? 1 : 0;
    });
    const double floor = bestOf(3, [&] { seen += bareRead(store); });
    report("open and list 100,000 tracks and files", ours, floor);
}

void measureInserts(const std::filesystem::path& folder) {
    double ignored = 0;
    double memory = 0;
    double ours = 1e9;
    for (int i = 0; i < 3; ++i) {
        const auto store = folder / fmt::format("insert{}.store", i);
        const auto container = open(store);
        auto& context = container->mainContext();
        memory = secondsOf([&] { run(scan(&context, library(context), 0, 10'000, &ignored, &ignored)); });
        ours = std::min(ours, secondsOf([&] { context.save(); }));
    }
    const double floor = bestOf(3, [&] { bareInsert(folder / "insert0.store", folder / "bare.store"); });
    report("save 10,000 new files and tracks", ours, floor);
    fmt::print("{:<58} {:>9.3f} ms\n", "  the batch repositories' work on them before the save",
               memory * 1e3);
}

void measureLookUps(const std::filesystem::path& folder, const std::filesystem::path& large) {
    std::array<std::array<double, 2>, 2> times{};
    for (const int count : {1'000, 100'000}) {
        const auto store = count == 1'000 ? folder / "small.store" : large;
        const auto container = open(store);
        auto& context = container->mainContext();
        double ignored = 0;
        if (count == 1'000) run(scan(&context, library(context), 0, count, &ignored, &ignored));
        auto& time = times[count == 1'000 ? 0 : 1];
        run(scan(&context, library(context), count, 5'000, &time.front(), &time.back()));
    }
    report("ensureFile x5000 at 100,000 files, floor: at 1,000", times[1][0], times[0][0]);
    report("upsertTrack x5000 at 100,000 tracks, floor: at 1,000", times[1][1], times[0][1]);
}

void measureSignatures() {
    std::size_t bytes = 0;
    std::vector<TrackMetadata> songs;
    for (int i = 0; i < 1000; ++i)
        songs.push_back(metadata(i));
    const double time = bestOf(3, [&] {
        for (int i = 0; i < 1'000'000; ++i) {
            const auto& song = songs[static_cast<std::size_t>(i % 1000)];
            bytes += canonicalSig(song.artist, song.title, song.album, song.durationSec).size();
        }
    });
    fmt::print("{:<58} {:>9.0f} a second ({} bytes)\n", "canonicalSig", 1e6 / time, bytes);
}

} // namespace

int main() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velto-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return 1;
    const std::filesystem::path folder = pattern;
    const auto large = folder / "large.store";
    {
        const auto container = open(large);
        auto& context = container->mainContext();
        double ignored = 0;
        run(scan(&context, library(context), 0, 100'000, &ignored, &ignored));
        context.save();
    }
    measureListing(large);
    measureInserts(folder);
    measureLookUps(folder, large);
    measureSignatures();
    std::filesystem::remove_all(folder);
    return 0;
}
