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
    const auto lock = database_.lock();
    statements_.clear();
    transaction_.reset();
}

void StoreWriter::write(const std::vector<RowChange>& changes) {
    begin();
    append(changes);
    commit();
}

void StoreWriter::begin() {
    const auto lock = database_.lock();
    statements_.resize(codecs_.size());
    transaction_.emplace(database_);
}

void StoreWriter::append(const std::vector<RowChange>& changes) {
    const auto lock = database_.lock();
    const RowChange* current = nullptr;
    try {
        for (const RowChange& change : changes) {
            current = &change;
            write(change);
        }
    } catch (const StoreError& error) {
        transaction_.reset();
        using enum StoreError::Case;
        if (error.errorCase() != duplicateValue && error.errorCase() != refusedValue) throw;
        throw RefusedRow(error, *current);
    }
}

void StoreWriter::commit() {
    const auto lock = database_.lock();
    try {
        transaction_->commit();
    } catch (const StoreError&) {
        transaction_.reset();
        throw;
    }
    transaction_.reset();
}

void StoreWriter::rollBack() {
    const auto lock = database_.lock();
    transaction_.reset();
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
