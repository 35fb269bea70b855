#pragma once

#include "platform/model/ObjectTable.hpp"
#include "platform/model/RowCodec.hpp"
#include "platform/model/Schema.hpp"

#include <cstddef>
#include <vector>

namespace velto::model {

/// The place of an entity in its schema.
[[nodiscard]] std::size_t indexOf(const std::vector<RowCodec>& codecs, const EntityDescription& entity);

/// All objects of a store, a table an entity, in the schema's order.
using ObjectGraph = std::vector<ObjectTable>;

/// Reads the whole store: one pass a table, then the relationships, linear in all. The objects carry no
/// context yet. A relationship to a row that is not there reads as none. Throws StoreError.
ObjectGraph readGraph(Database& database, const std::vector<RowCodec>& codecs);

} // namespace velto::model
