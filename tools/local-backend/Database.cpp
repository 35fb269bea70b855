#include "Database.hpp"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velto::local {

namespace {

// Another backend on the same file holds the write lock for one small transaction only.
constexpr int busyTimeoutMilliseconds = 10'000;

[[noreturn]] void fail(sqlite3* handle, std::string_view what) {
    throw DatabaseError(fmt::format("{}: {}", what, handle ? sqlite3_errmsg(handle) : "out of memory"));
}

void createPrivately(const std::filesystem::path& path) {
    const auto folder = path.parent_path();
    if (!folder.empty() && !std::filesystem::exists(folder)) {
        const mode_t before = umask(077);
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        umask(before);
        if (error) throw SystemError(error.value(), "create folder", folder.string());
    }
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) throw SystemError(errno, "open", path.string());
    close(file);
}

} // namespace

Database::Database(const std::filesystem::path& path) {
    createPrivately(path);
    if (sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        const std::string reason = handle_ ? sqlite3_errmsg(handle_) : "out of memory";
        sqlite3_close(handle_);
        throw DatabaseError(fmt::format("Could not open {}: {}", path.string(), reason));
    }
    sqlite3_busy_timeout(handle_, busyTimeoutMilliseconds);
    try {
        execute("PRAGMA journal_mode = WAL");
        // A killed process loses nothing with NORMAL; a power cut may lose the last requests.
        execute("PRAGMA synchronous = NORMAL");
        execute("PRAGMA foreign_keys = ON");
    } catch (const DatabaseError&) {
        const std::string reason = sqlite3_errmsg(handle_);
        sqlite3_close(handle_);
        throw DatabaseError(fmt::format("Could not use {} as state: {}", path.string(), reason));
    }
}

Database::~Database() {
    sqlite3_close(handle_);
}

void Database::execute(const char* sql) {
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(handle_, sql);
}

std::int64_t Database::changes() const {
    return sqlite3_changes64(handle_);
}

std::int64_t Database::lastInsertId() const {
    return sqlite3_last_insert_rowid(handle_);
}

Statement::Statement(Database& database, std::string_view sql)
    : database_(database) {
    check(sqlite3_prepare_v2(database.handle(), sql.data(), static_cast<int>(sql.size()), &statement_,
                             nullptr));
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

bool Statement::step() {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    check(sqlite3_reset(statement_));
    return false;
}

void Statement::run() {
    while (step()) {
    }
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string Statement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
}

std::optional<std::string> Statement::optionalText(int column) const {
    if (sqlite3_column_type(statement_, column) == SQLITE_NULL) return std::nullopt;
    return text(column);
}

void Statement::expectParameters(std::size_t count) const {
    if (static_cast<std::size_t>(sqlite3_bind_parameter_count(statement_)) != count)
        throw std::logic_error("a statement is bound with another number of parameters than it has");
}

void Statement::bindOne(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::bindOne(int index, double value) {
    check(sqlite3_bind_double(statement_, index, value));
}

void Statement::bindOne(int index, const std::string& value) {
    check(sqlite3_bind_text64(statement_, index, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bindOne(int index, const std::optional<std::string>& value) {
    if (value)
        bindOne(index, *value);
    else
        check(sqlite3_bind_null(statement_, index));
}

void Statement::check(int code) const {
    if (code != SQLITE_OK) fail(database_.handle(), "State");
}

Transaction::Transaction(Database& database)
    : database_(database) {
    database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!open_) return;
    try {
        database_.execute("ROLLBACK");
    } catch (const DatabaseError&) {
        // SQLite has rolled back by itself already (full disk, I/O error).
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

} // namespace velto::local
