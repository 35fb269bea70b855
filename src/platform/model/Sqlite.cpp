#include "platform/model/Sqlite.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace velto::model {

namespace {

StoreError::Case constraintCase(int code) {
    switch (code) {
    case SQLITE_CONSTRAINT_UNIQUE:
        return StoreError::Case::duplicateValue;
    case SQLITE_CONSTRAINT_CHECK:
    case SQLITE_CONSTRAINT_DATATYPE:
    case SQLITE_CONSTRAINT_NOTNULL:
        return StoreError::Case::refusedValue;
    default:
        return StoreError::Case::failed;
    }
}

} // namespace

Database::Database(const std::string& location, std::filesystem::path store, int flags)
    : store_(std::move(store)) {
    // Before SQLite's first use: nobody asks for its count of memory, which takes a lock for each piece.
    [[maybe_unused]] static const int configured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    const int code = sqlite3_open_v2(location.c_str(), &handle_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code == SQLITE_OK) {
        sqlite3_extended_result_codes(handle_, 1);
        // Otherwise a quoted name that no column has is a text, and a store without that column reads well.
        sqlite3_db_config(handle_, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
        sqlite3_db_config(handle_, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
        return;
    }
    const StoreError error = translate(code);
    sqlite3_close_v2(handle_);
    throw error;
}

Database::~Database() {
    sqlite3_close_v2(handle_);
}

void Database::execute(const std::string& sql) {
    if (const int code = sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr); code != SQLITE_OK)
        throw translate(code);
}

std::int64_t Database::integer(const std::string& sql) {
    Statement statement(*this, sql);
    return statement.step() ? statement.integer(0) : 0;
}

StoreError Database::translate(int code) const {
    using enum StoreError::Case;
    std::string detail = handle_ != nullptr ? sqlite3_errmsg(handle_) : sqlite3_errstr(code);
    const int systemError = handle_ != nullptr ? sqlite3_system_errno(handle_) : 0;
    switch (code & 0xFF) {
    case SQLITE_FULL:
        return {diskFull, store_, detail};
    case SQLITE_NOTADB:
        return {notAStore, store_, detail};
    case SQLITE_CORRUPT:
        return {damaged, store_, detail};
    case SQLITE_READONLY:
        return {readOnly, store_, detail};
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return {busy, store_, detail};
    case SQLITE_CANTOPEN:
        return {cannotOpen, store_, detail};
    case SQLITE_CONSTRAINT:
        return {constraintCase(code), store_, detail};
    case SQLITE_TOOBIG:
        return {refusedValue, store_, detail};
    case SQLITE_IOERR:
        if (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG)
            return {diskFull, store_, detail};
        if (systemError != 0) {
            char buffer[256];
            detail += fmt::format(" ({})", strerror_r(systemError, buffer, sizeof buffer));
        }
        return {inputOutput, store_, detail};
    default:
        return {failed, store_, detail};
    }
}

Statement::Statement(Database& database, const std::string& sql)
    : database_(database) {
    sqlite3_stmt* raw = nullptr;
    const int code = sqlite3_prepare_v3(database.handle(), sql.c_str(), static_cast<int>(sql.size() + 1),
                                        SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
    statement_.reset(raw);
    check(code);
}

void Statement::bindBorrowed(int index, std::string_view text) {
    const char* bytes = text.data() != nullptr ? text.data() : ""; // null would store NULL
    check(sqlite3_bind_text64(get(), index, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bindCopied(int index, std::string_view text) {
    const char* bytes = text.data() != nullptr ? text.data() : "";
    check(sqlite3_bind_text64(get(), index, bytes, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

bool Statement::step() {
    const int code = sqlite3_step(get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    const StoreError error = database_.translate(code);
    sqlite3_reset(get());
    throw error;
}

void Statement::run() {
    while (step()) {
    }
    reset();
}

std::string_view Statement::text(int column) const {
    const auto* bytes = sqlite3_column_text(get(), column);
    if (bytes == nullptr) return {};
    return {reinterpret_cast<const char*>(bytes),
            static_cast<std::size_t>(sqlite3_column_bytes(get(), column))};
}

void Statement::check(int code) const {
    if (code != SQLITE_OK) throw database_.translate(code);
}

Transaction::Transaction(Database& database)
    : database_(database) {
    database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    // SQLite itself rolls back after some failures; then this finds nothing to do.
    if (isOpen_ && sqlite3_get_autocommit(database_.handle()) == 0)
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    database_.execute("COMMIT");
    isOpen_ = false;
}

} // namespace velto::model
