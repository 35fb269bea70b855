#pragma once

#include "platform/model/RowCodec.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace velto::model {

/// One row to be written, apart from its object if `values` were captured.
struct RowChange {
    enum class Kind : std::uint8_t { remove, update, relink, insert };

    Kind kind;
    std::size_t entity; ///< place in the schema
    std::int64_t row;
    Object* object; ///< null if `values` says what to write
    CapturedRow values;
};

/// The store does not take the values of one row: a duplicateValue or a refusedValue.
class RefusedRow : public StoreError {
  public:
    RefusedRow(const StoreError& error, const RowChange& change)
        : StoreError(error)
        , entity(change.entity)
        , row(change.row) {}

    std::size_t entity; ///< place in the schema
    std::int64_t row;
};

/// Writes row changes in one transaction, with statements prepared once. One thread at a time.
class StoreWriter {
  public:
    StoreWriter(Database& database, const std::vector<RowCodec>& codecs);
    StoreWriter(const StoreWriter&) = delete;
    StoreWriter& operator=(const StoreWriter&) = delete;
    ~StoreWriter();

    /// All or nothing. Throws StoreError; RefusedRow if it is one row's fault.
    void write(const std::vector<RowChange>& changes);

    /// The same in pieces: nothing of it counts before commit(). A piece that fails rolls back all of it.
    void begin();
    void append(const std::vector<RowChange>& changes);
    void commit();

    /// Nothing happens if nothing is begun.
    void rollBack();

  private:
    struct Statements {
        std::optional<Statement> insert;
        std::optional<Statement> update;
        std::optional<Statement> relink;
        std::optional<Statement> remove;
    };

    [[nodiscard]] Statement& statement(const RowChange& change);
    void write(const RowChange& change);

    Database& database_;
    const std::vector<RowCodec>& codecs_;
    std::vector<Statements> statements_; ///< empty until the first write
    std::optional<Transaction> transaction_;
};

} // namespace velto::model
