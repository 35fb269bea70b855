#pragma once

#include "platform/model/ModelContext.hpp"
#include "platform/model/Sqlite.hpp"

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace velto::model {

/// One ModelContext::rollback(): read(), then apply(). A relationship is stored with the row of its
/// single-valued end, and changing it makes that row pending: the rows of the pending objects are all that
/// there is to restore.
class Rollback {
  public:
    explicit Rollback(ModelContext& context);

    /// Reads what the store holds of the pending objects, changing none of them. Throws StoreError.
    void read();

    /// Puts the objects back. After this nothing is pending.
    void apply();

  private:
    struct StoredRow {
        Ref<Object> object;
        std::size_t entity;                ///< place in the schema
        Ref<Object> values;                ///< of nobody's context
        std::vector<std::int64_t> targets; ///< row ids of the single-valued relationships, 0 where none
    };

    void readRow(Statement& select, std::size_t place, const Ref<Object>& object);
    void expelUnstored();
    void restoreValues();
    void restoreRelationships(const StoredRow& row);

    ModelContext& context_;
    ModelContext::State& state_;
    std::vector<Ref<Object>> unstored_; ///< those without a row
    std::vector<StoredRow> stored_;
    std::unordered_set<ToManyBase*> grown_; ///< lists that got members back
};

} // namespace velto::model
