#pragma once

#include "platform/core/Error.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace velto::local {

/// The state file cannot be opened or a statement failed; the text is SQLite's with what was tried.
class DatabaseError : public Error {
  public:
    using Error::Error;
};

/// One SQLite connection in WAL mode. Not for two threads at once: its owner holds a mutex.
class Database {
  public:
    /// Makes missing folders (0700) and the file (0600: it holds hashes of tokens and e-mail addresses).
    explicit Database(const std::filesystem::path& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void execute(const char* sql);
    /// Rows changed by the last insert, update or delete.
    [[nodiscard]] std::int64_t changes() const;
    [[nodiscard]] std::int64_t lastInsertId() const;

    [[nodiscard]] sqlite3* handle() const { return handle_; }

  private:
    sqlite3* handle_ = nullptr;
};

/// A prepared statement. Parameters are bound from 1 on, columns are read from 0 on.
class Statement {
  public:
    Statement(Database& database, std::string_view sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Binds all parameters in order; asserts their number.
    template <typename... Values>
    Statement& bind(const Values&... values) {
        expectParameters(sizeof...(values));
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }

    /// True while there is a row; resets itself after the last one.
    bool step();
    /// Runs to the end.
    void run();

    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] std::optional<std::string> optionalText(int column) const;

  private:
    void expectParameters(std::size_t count) const;
    void bindOne(int index, std::int64_t value);
    void bindOne(int index, double value);
    void bindOne(int index, const std::string& value);
    void bindOne(int index, const std::optional<std::string>& value);
    void check(int code) const;

    Database& database_;
    sqlite3_stmt* statement_ = nullptr;
};

/// Takes the write lock at once, so that what is read inside stays true; rolls back unless committed.
class Transaction {
  public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

  private:
    Database& database_;
    bool open_ = true;
};

} // namespace velto::local
