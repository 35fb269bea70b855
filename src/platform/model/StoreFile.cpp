#include "platform/model/StoreFile.hpp"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace velto::model {

namespace {

namespace fs = std::filesystem;
using Case = StoreError::Case;

constexpr std::int64_t applicationId = 0x566C746F; // "Vlto": marks the file as ours, do not change
constexpr std::string_view magic("SQLite format 3\0", 16);
constexpr int busyMilliseconds = 2'000; // for a backup program that reads the store; the main actor waits

[[noreturn]] void fail(const fs::path& store, int errorNumber) {
    char buffer[256];
    const std::string reason = strerror_r(errorNumber, buffer, sizeof buffer);
    if (errorNumber == ENOSPC || errorNumber == EDQUOT) throw StoreError(Case::diskFull, store, reason);
    if (errorNumber == EROFS) throw StoreError(Case::readOnly, store, reason);
    throw StoreError(Case::cannotOpen, store, reason);
}

files::Descriptor openFile(const fs::path& path, int flags) {
    return files::Descriptor(::open(path.c_str(), flags | O_CLOEXEC, 0600));
}

std::uint32_t bigEndian32(const unsigned char* bytes) {
    return (std::uint32_t{bytes[0]} << 24U) | (std::uint32_t{bytes[1]} << 16U) |
           (std::uint32_t{bytes[2]} << 8U) | bytes[3];
}

/// The steps that lead from that version to the schema's; none if there is no such way.
std::vector<const Migration*> stepsFrom(std::int64_t version, const Schema& schema) {
    std::vector<const Migration*> steps;
    while (version != schema.version.encoded()) {
        const auto next =
            std::find_if(schema.migrations.begin(), schema.migrations.end(), [&](const Migration& migration) {
                return migration.from.encoded() == version && migration.to.encoded() > version;
            });
        if (next == schema.migrations.end()) return {};
        steps.push_back(&*next);
        version = next->to.encoded();
    }
    return steps;
}

void checkIdentity(const fs::path& store, std::int64_t identity, std::int64_t version, const Schema& schema) {
    if (identity != applicationId) throw StoreError(Case::notAStore, store, "another program's database");
    const std::int64_t own = schema.version.encoded();
    if (version == own || !stepsFrom(version, schema).empty()) return;
    throw StoreError(version > own ? Case::newerVersion : Case::olderVersion, store,
                     "version " + SchemaVersion::decoded(version).text());
}

/// Refuses by the file's first bytes what is not a store of ours, before SQLite gets to touch it. False if
/// there is no file, or an empty one.
bool isStoreThere(const fs::path& store, const Schema& schema) {
    const auto file = openFile(store, O_RDONLY);
    if (!file) {
        if (errno != ENOENT) fail(store, errno);
        if (fs::is_symlink(fs::symlink_status(store)))
            throw StoreError(Case::cannotOpen, store, "it is a link, and what it leads to is not there");
        return false;
    }
    struct stat attributes {};
    if (::fstat(file.get(), &attributes) != 0) fail(store, errno);
    if (!S_ISREG(attributes.st_mode)) throw StoreError(Case::cannotOpen, store, "it is not a regular file");
    if (attributes.st_size == 0) return false;
    std::array<unsigned char, 100> header{};
    const auto count = ::pread(file.get(), header.data(), header.size(), 0);
    if (count < 0) fail(store, errno);
    if (count < static_cast<ssize_t>(header.size()) ||
        std::memcmp(header.data(), magic.data(), magic.size()) != 0)
        throw StoreError(Case::notAStore, store, "its first bytes are not a database's");
    checkIdentity(store, bigEndian32(header.data() + 68), bigEndian32(header.data() + 60), schema);
    ::fchmod(file.get(), 0600); // holds the user's playlists; what SQLite puts beside it takes the same mode
    return true;
}

void configure(Database& database) {
    sqlite3_busy_timeout(database.handle(), busyMilliseconds);
    database.execute("PRAGMA journal_mode = WAL"); // kept in the file
    database.execute("PRAGMA foreign_keys = ON");
    database.execute("PRAGMA synchronous = FULL");
    database.execute("PRAGMA trusted_schema = OFF");
    database.execute("PRAGMA journal_size_limit = 67108864"); // a large scan's log does not stay on the disk
}

void createTables(Database& database, const Schema& schema) {
    Transaction transaction(database);
    for (const auto* entity : schema.entities)
        for (const auto& statement : RowCodec(*entity).createStatements())
            database.execute(statement);
    database.execute(fmt::format("PRAGMA application_id = {}", applicationId));
    database.execute(fmt::format("PRAGMA user_version = {}", schema.version.encoded()));
    transaction.commit();
}

/// A log without its store holds committed rows of a store that was moved away. SQLite would play it into
/// whatever file takes the name, and damage both.
void refuseForeignLog(const fs::path& store) {
    for (const char* rest : {"-wal", "-journal"}) {
        const std::string log = store.string() + rest;
        struct stat attributes {};
        if (::stat(log.c_str(), &attributes) == 0 && attributes.st_size > 0)
            throw StoreError(
                Case::cannotOpen, store,
                "it is not there, but " + log +
                    " is, which holds a part of it. Put the store back beside it, or move that file to "
                    "where the store is now.");
    }
}

/// Makes the store beside its place and moves it there whole: whoever is killed meanwhile leaves no half
/// store.
void createStore(const fs::path& store, const Schema& schema) {
    refuseForeignLog(store);
    const fs::path draft = store.string() + ".new";
    for (const char* rest : {"", "-journal", "-wal", "-shm"})
        ::unlink((draft.string() + rest).c_str());
    {
        const auto file = openFile(draft, O_RDWR | O_CREAT | O_EXCL);
        if (!file) fail(store, errno);
    }
    {
        Database database(draft.string(), store, SQLITE_OPEN_READWRITE);
        configure(database);
        createTables(database, schema);
    }
    if (::rename(draft.c_str(), store.c_str()) != 0) fail(store, errno);
    const auto folder =
        openFile(store.parent_path().empty() ? "." : store.parent_path(), O_RDONLY | O_DIRECTORY);
    if (folder) ::fsync(folder.get());
}

void checkTables(Database& database, const Schema& schema) {
    for (const auto* entity : schema.entities) {
        try {
            const Statement probe(database, RowCodec(*entity).selectAll());
        } catch (const StoreError& error) {
            if (error.errorCase() != Case::failed) throw;
            throw database.damaged("the table " + entity->name() + " is not as it should be");
        }
    }
}

/// A copy of the store as it is, its log included, which has been read back before it counts.
void keepCopy(Database& database, const fs::path& store, const Schema& schema, std::int64_t version) {
    const fs::path kept = store.string() + ".before-" + schema.version.text();
    const fs::path draft = kept.string() + ".new";
    ::unlink(draft.c_str());
    Statement copy(database, "VACUUM INTO ?1");
    copy.bindCopied(1, draft.string());
    copy.run();
    {
        Database read(draft.string(), store, SQLITE_OPEN_READONLY);
        Statement check(read, "PRAGMA integrity_check");
        const bool isWhole = check.step() && check.text(0) == "ok";
        if (!isWhole || read.integer("PRAGMA user_version") != version)
            throw StoreError(Case::failed, store,
                             "its copy before the change to a newer version is not whole");
    }
    const auto file = openFile(draft, O_RDONLY);
    if (!file || ::fchmod(file.get(), 0600) != 0 || ::fsync(file.get()) != 0 ||
        ::rename(draft.c_str(), kept.c_str()) != 0)
        fail(store, errno);
}

/// Whoever is killed meanwhile finds the store at its old version, and the next start tries again.
void migrate(Database& database, const fs::path& store, const Schema& schema) {
    const std::int64_t version = database.integer("PRAGMA user_version");
    const auto steps = stepsFrom(version, schema);
    if (steps.empty()) return;
    keepCopy(database, store, schema, version);
    Transaction transaction(database);
    for (const Migration* step : steps)
        for (const std::string& statement : step->statements)
            database.execute(statement);
    database.execute(fmt::format("PRAGMA user_version = {}", schema.version.encoded()));
    checkTables(database, schema);
    transaction.commit();
}

} // namespace

std::string SchemaVersion::text() const {
    return fmt::format("{}.{}.{}", major, minor, patch);
}

StoreLock::StoreLock(const fs::path& store) {
    const fs::path path = store.string() + ".lock";
    descriptor_ = openFile(path, O_RDWR | O_CREAT | O_NOFOLLOW);
    if (!descriptor_) fail(store, errno);
    if (::flock(descriptor_.get(), LOCK_EX | LOCK_NB) == 0) return;
    if (errno == EWOULDBLOCK) throw StoreError(Case::inUse, store, "");
    fail(store, errno);
}

std::unique_ptr<Database> openStore(const Schema& schema, const fs::path& store) {
    if (!isStoreThere(store, schema)) createStore(store, schema);
    auto database = std::make_unique<Database>(store.string(), store, SQLITE_OPEN_READWRITE);
    // Until it is known to be ours nothing may be folded into the file, not even when it is closed again.
    sqlite3_db_config(database->handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_busy_timeout(database->handle(), busyMilliseconds);
    checkIdentity(store, database->integer("PRAGMA application_id"), database->integer("PRAGMA user_version"),
                  schema);
    if (database->integer("PRAGMA user_version") == schema.version.encoded()) checkTables(*database, schema);
    if (sqlite3_db_readonly(database->handle(), "main") == 1)
        throw StoreError(Case::readOnly, store, "its file or its folder is read-only");
    configure(*database);
    migrate(*database, store, schema);
    sqlite3_db_config(database->handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    return database;
}

} // namespace velto::model
