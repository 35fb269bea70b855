#pragma once

#include "platform/model/StoreError.hpp"

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace velto::model {

/// A connection. Its failures are StoreErrors with the store's path. SQLite itself takes no lock: a thread
/// that is not the only one holds lock() for as long as it uses the connection and its statements.
class Database {
  public:
    /// `location` is what SQLite opens, `store` what errors name.
    Database(const std::string& location, std::filesystem::path store, int flags);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    void execute(const std::string& sql);
    [[nodiscard]] std::int64_t integer(const std::string& sql);

    [[nodiscard]] sqlite3* handle() const { return handle_; }

    [[nodiscard]] std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }

    [[nodiscard]] const std::filesystem::path& store() const { return store_; }

    /// The only place where a SQLite code becomes an error.
    [[nodiscard]] StoreError translate(int code) const;

    /// For a value that breaks the rules; `detail` names its place.
    [[nodiscard]] StoreError damaged(const std::string& detail) const {
        return {StoreError::Case::damaged, store_, detail};
    }

  private:
    sqlite3* handle_ = nullptr;
    std::filesystem::path store_;
    std::mutex mutex_;
};

/// A prepared statement. Bound texts are not copied: they must live until reset() or the next step to the
/// end.
class Statement {
  public:
    Statement(Database& database, const std::string& sql);

    void bindNull(int index) { check(sqlite3_bind_null(get(), index)); }

    void bind(int index, std::int64_t value) { check(sqlite3_bind_int64(get(), index, value)); }

    void bind(int index, double value) { check(sqlite3_bind_double(get(), index, value)); }

    void bindBorrowed(int index, std::string_view text);
    void bindCopied(int index, std::string_view text);

    /// True if there is a row to be read.
    bool step();
    /// Runs to the end and makes it ready for the next run.
    void run();

    void reset() { sqlite3_reset(get()); }

    [[nodiscard]] int type(int column) const { return sqlite3_column_type(get(), column); }

    [[nodiscard]] std::int64_t integer(int column) const { return sqlite3_column_int64(get(), column); }

    [[nodiscard]] double real(int column) const { return sqlite3_column_double(get(), column); }

    [[nodiscard]] std::string_view text(int column) const;

  private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    [[nodiscard]] sqlite3_stmt* get() const { return statement_.get(); }

    void check(int code) const;

    Database& database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// Rolls back unless it was committed.
class Transaction {
  public:
    explicit Transaction(Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void commit();

  private:
    Database& database_;
    bool isOpen_ = true;
};

} // namespace velto::model
