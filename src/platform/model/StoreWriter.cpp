#include "platform/model/StoreWriter.hpp"

namespace velto::model {

namespace {

void bindCaptured(Statement& statement, const CapturedRow& values) {
    int parameter = 1;
    for (const auto& cell : values.cells) {
        if (const auto* integer = std::get_if<std::int64_t>(&cell))
            statement.bind(parameter, *integer);
        else if (const auto* real = std::get_if<double>(&cell))
            statement.bind(parameter, *real);
        else if (const auto* text = std::get_if<CapturedRow::Text>(&cell))
            statement.bindBorrowed(parameter, values.view(*text));
        else
            statement.bindNull(parameter);
        ++parameter;
    }
}

} // namespace

StoreWriter::StoreWriter(Database& database, const std::vector<RowCodec>& codecs)
    : database_(database)
    , codecs_(codecs) {}

StoreWriter::~StoreWriter() {
    if (statements_.empty()) return;
    const auto lock = database_.lock();
    statements_.clear();
}

void StoreWriter::write(const std::vector<RowChange>& changes) {
    const auto lock = database_.lock();
    statements_.resize(codecs_.size());
    Transaction transaction(database_);
    for (const RowChange& change : changes)
        write(change);
    transaction.commit();
}

Statement& StoreWriter::statement(const RowChange& change) {
    const RowCodec& codec = codecs_[change.entity];
    Statements& statements = statements_[change.entity];
    const auto prepared = [&](std::optional<Statement>& statement, const auto& sql) -> Statement& {
        if (!statement) statement.emplace(database_, sql());
        return *statement;
    };
    switch (change.kind) {
    case RowChange::Kind::insert:
        return prepared(statements.insert, [&] { return codec.insertRow(); });
    case RowChange::Kind::update:
        return prepared(statements.update, [&] { return codec.updateRow(false); });
    case RowChange::Kind::relink:
        return prepared(statements.relink, [&] { return codec.updateRow(true); });
    case RowChange::Kind::remove:
        break;
    }
    return prepared(statements.remove, [&] { return codec.deleteRow(); });
}

void StoreWriter::write(const RowChange& change) {
    Statement& prepared = statement(change);
    if (change.kind == RowChange::Kind::remove) {
        prepared.bind(1, change.row);
    } else if (change.object != nullptr) {
        StatementSink sink(prepared);
        codecs_[change.entity].encode(*change.object, change.kind != RowChange::Kind::update, sink);
    } else {
        bindCaptured(prepared, change.values);
    }
    prepared.run();
}

} // namespace velto::model
