// What the store costs against bare SQLite doing the same rows: opening and listing, inserting, look-ups
// inside a scan.

#include "Measure.hpp"
#include "platform/log/Log.hpp"
#include "store/FileSystemInfo.hpp"
#include "store/TrackRepository.hpp"

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

using namespace velto;
using namespace velto::bench;

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
Task<void> scan(ModelContext* context, LibraryRef library, int first, int count, double* upsert) {
    const SystemClock clock;
    TrackRepository tracks(*context, clock, nullptr);
    co_await tracks.preloadCache();
    for (int i = first; i < first + count; ++i) {
        const FileSystemInfo info = fileInfo(i);
        const auto file = model::make<FileItem>(info.absPath, info.relPath, info.filename, info.ext,
                                                info.sizeBytes, info.mtime, FileStatus::ready, clock.now());
        file->edit().library = library;
        file->edit().quickSig = "0123456789abcdef";
        const auto start = std::chrono::steady_clock::now();
        const auto track = co_await tracks.upsertTrack(metadata(i));
        *upsert += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
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

void fill(const std::filesystem::path& store, int count) {
    static_cast<void>(inChild([&] {
        const auto container = open(store);
        auto& context = container->mainContext();
        double ignored = 0;
        run(scan(&context, library(context), 0, count, &ignored));
        context.save();
        return Cost();
    }));
}

void measureListing(const std::filesystem::path& store, std::size_t count) {
    const int rounds = count > 100'000 ? 3 : 7;
    Series ours;
    Series floor;
    for (int i = 0; i < rounds; ++i) {
        floor.push_back(inChild([&] { return costOf([&] { static_cast<void>(bareRead(store)); }); }));
        ours.push_back(inChild([&] {
            std::unique_ptr<model::ModelContainer> container;
            std::size_t seen = 0;
            const Cost cost = costOf([&] {
                container = open(store);
                for (const auto& file : library(container->mainContext())->files)
                    seen += file->track ? 1 : 0;
            });
            if (seen != count) throw std::runtime_error("the store does not hold what was put into it");
            return cost;
        }));
    }
    report(fmt::format("open a store of {} tracks and files and list it; floor: bare SQLite read", count),
           ours, floor, 4.0);
}

void measureInserts(const std::filesystem::path& folder) {
    constexpr int rounds = 5;
    Series ours;
    Series floor;
    for (int i = 0; i < rounds; ++i) {
        const auto store = folder / fmt::format("insert{}.store", i);
        ours.push_back(inChild([&] {
            const auto container = open(store);
            auto& context = container->mainContext();
            double ignored = 0;
            run(scan(&context, library(context), 0, 10'000, &ignored));
            return costOf([&] { context.save(); });
        }));
        floor.push_back(inChild([&] { return costOf([&] { bareInsert(store, folder / "bare.store"); }); }));
    }
    report("save 10000 new files and tracks; floor: the same rows by bare SQLite", ours, floor);
}

/// The time of 5,000 calls of upsertTrack inside a scan that comes to a library of `count` files.
Cost upserts(const std::filesystem::path& store, int count) {
    const auto container = open(store);
    auto& context = container->mainContext();
    double ignored = 0;
    if (context.fetch<Track>().empty()) run(scan(&context, library(context), 0, count, &ignored));
    Cost cost;
    run(scan(&context, library(context), count, 5'000, &cost.seconds));
    cost.cpuSeconds = cost.seconds; // each call is timed by itself, and it never waits
    return cost;
}

void measureLookUps(const std::filesystem::path& folder, const std::filesystem::path& large) {
    constexpr int rounds = 5;
    Series upsertSmall;
    Series upsertLarge;
    for (int i = 0; i < rounds; ++i) {
        // Nothing is saved: every round finds the stores as they were.
        upsertSmall.push_back(upserts(folder / "small.store", 1'000));
        upsertLarge.push_back(upserts(large, 100'000));
    }
    // "Constant" leaves room for what no longer fits the processor's caches; anything linear would be 100
    // times.
    constexpr double constant = 2.0;
    report("5000 calls of upsertTrack at 100000 tracks; floor: at 1000", upsertLarge, upsertSmall, constant);
}

} // namespace

int main() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velto-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return 1;
    const std::filesystem::path folder = pattern;
    const auto large = folder / "large.store";
    fill(large, 100'000);
    measureListing(large, 100'000);
    const auto huge = folder / "huge.store";
    fill(huge, 1'000'000);
    measureListing(huge, 1'000'000);
    measureInserts(folder);
    measureLookUps(folder, large);
    std::filesystem::remove_all(folder);
    return 0;
}
