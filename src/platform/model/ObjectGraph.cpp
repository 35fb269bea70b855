#include "platform/model/ObjectGraph.hpp"

#include "platform/model/ObjectAccess.hpp"

#include <fmt/format.h>

#include <limits>

namespace velto::model {

namespace {

// Row ids beyond it would leave no room to count on from.
constexpr std::int64_t lastRow = std::numeric_limits<std::int64_t>::max() / 2;

/// The targets of an entity's single-valued relationships, row after row.
using Targets = std::vector<std::int64_t>;

Targets readTable(Database& database, const RowCodec& codec, ObjectTable& table) {
    Targets targets;
    Statement rows(database, codec.selectAll());
    while (rows.step()) {
        Object* object = codec.entity().makeEmpty();
        const Ref<Object> guard(*object);
        ObjectAccess::release(*object); // the guard has it now
        codec.decode(rows, database, *object, targets);
        const std::int64_t row = ObjectAccess::row(*object);
        if (row <= 0 || row > lastRow)
            throw database.damaged(fmt::format("{} has a row {}", codec.entity().name(), row));
        ObjectAccess::setState(*object, ObjectAccess::State::saved);
        ObjectAccess::retain(*object);
        table.adopt(*object);
    }
    return targets;
}

/// The highest row id that the table ever held, by what SQLite keeps of an AUTOINCREMENT column.
std::int64_t highestRow(Database& database, const RowCodec& codec) {
    const std::int64_t row = database.integer(fmt::format(
        "SELECT coalesce(max(seq), 0) FROM sqlite_sequence WHERE name = '{}'", codec.entity().name()));
    if (row > lastRow) throw database.damaged(fmt::format("{} counts to {}", codec.entity().name(), row));
    return row;
}

void link(const std::vector<RowCodec>& codecs, const RowCodec& codec, const ObjectGraph& graph,
          const ObjectTable& table, const Targets& targets) {
    const auto& relationships = codec.entity().toOnes();
    std::vector<const ObjectTable*> targetTables;
    for (const auto& relationship : relationships)
        targetTables.push_back(&graph[indexOf(codecs, relationship.target())]);
    std::size_t next = 0;
    table.forEach([&](Object& object) {
        for (std::size_t i = 0; i < relationships.size(); ++i) {
            const std::int64_t row = targets[next++];
            if (row == 0) continue;
            if (Object* target = targetTables[i]->find(row); target != nullptr)
                ObjectAccess::link(relationships[i].toOne(object), *target);
        }
    });
}

} // namespace

std::size_t indexOf(const std::vector<RowCodec>& codecs, const EntityDescription& entity) {
    std::size_t index = 0;
    while (&codecs[index].entity() != &entity)
        ++index;
    return index;
}

ObjectGraph readGraph(Database& database, const std::vector<RowCodec>& codecs) {
    const auto lock = database.lock();
    ObjectGraph graph(codecs.size());
    std::vector<Targets> targets;
    // A store of the first builds has no such table and gives the ids of its last rows again.
    const bool hasSequence =
        database.integer("SELECT count(*) FROM sqlite_schema WHERE name = 'sqlite_sequence'") > 0;
    for (std::size_t i = 0; i < codecs.size(); ++i) {
        targets.push_back(readTable(database, codecs[i], graph[i]));
        if (hasSequence) graph[i].useUp(highestRow(database, codecs[i]));
    }
    for (std::size_t i = 0; i < codecs.size(); ++i)
        link(codecs, codecs[i], graph, graph[i], targets[i]);
    return graph;
}

} // namespace velto::model
