#pragma once

#include "platform/model/RowCodec.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace velto::model {

/// One row to be written, apart from its object where `values` were captured.
struct RowChange {
    enum class Kind : std::uint8_t { remove, update, relink, insert };

    Kind kind;
    std::size_t entity; ///< place in the schema
    std::int64_t row;
    Object* object; ///< null where `values` says what to write
    CapturedRow values;
};

/// Writes row changes in one transaction, with statements prepared once. One thread at a time.
class StoreWriter {
  public:
    StoreWriter(Database& database, const std::vector<RowCodec>& codecs);
    StoreWriter(const StoreWriter&) = delete;
    StoreWriter& operator=(const StoreWriter&) = delete;
    ~StoreWriter();

    /// All or nothing. Throws StoreError.
    void write(const std::vector<RowChange>& changes);

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
};

} // namespace velto::model
