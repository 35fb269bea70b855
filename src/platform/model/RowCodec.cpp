#include "platform/model/RowCodec.hpp"

#include "platform/model/ObjectAccess.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace velto::model {

namespace {

std::string columnType(const AttributeDescription& attribute) {
    std::string type = "TEXT";
    switch (attribute.kind) {
    case AttributeKind::integer:
    case AttributeKind::boolean:
    case AttributeKind::date:
        type = "INTEGER";
        break;
    case AttributeKind::real:
        type = "REAL";
        break;
    case AttributeKind::text:
    case AttributeKind::uuid:
    case AttributeKind::textList:
    case AttributeKind::enumeration:
        break;
    }
    if (!attribute.isOptional) type += " NOT NULL";
    if (attribute.isUnique) type += " UNIQUE";
    return type;
}

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

/// The value of an attribute; null if it is optional and absent.
template <typename V>
const V* valueOf(const AttributeDescription& attribute, Object& object) {
    void* address = attribute.address(object);
    if (!attribute.isOptional) return static_cast<V*>(address);
    const auto& optional = *static_cast<std::optional<V>*>(address);
    return optional ? &*optional : nullptr;
}

template <typename V>
void assign(const AttributeDescription& attribute, Object& object, V value) {
    void* address = attribute.address(object);
    if (attribute.isOptional)
        *static_cast<std::optional<V>*>(address) = std::move(value);
    else
        *static_cast<V*>(address) = std::move(value);
}

std::string listText(const std::vector<std::string>& list) {
    // Tags come from replies and files: bytes that are not UTF-8 must not make the store refuse the object.
    return nlohmann::json(list).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<std::vector<std::string>> listFromText(std::string_view text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_array()) return std::nullopt;
    std::vector<std::string> list;
    list.reserve(json.size());
    for (const auto& element : json) {
        if (!element.is_string()) return std::nullopt;
        list.push_back(element.get<std::string>());
    }
    return list;
}

void encodeAttribute(const AttributeDescription& attribute, Object& object, int parameter, RowSink& sink) {
    const auto put = [&]<typename V>(const V* value, auto write) {
        value != nullptr ? write(*value) : sink.null(parameter);
    };
    switch (attribute.kind) {
    case AttributeKind::text:
        return put(valueOf<std::string>(attribute, object),
                   [&](const std::string& value) { sink.text(parameter, value, true); });
    case AttributeKind::integer:
        return put(valueOf<std::int64_t>(attribute, object),
                   [&](std::int64_t value) { sink.integer(parameter, value); });
    case AttributeKind::real:
        return put(valueOf<double>(attribute, object), [&](double value) { sink.real(parameter, value); });
    case AttributeKind::boolean:
        return put(valueOf<bool>(attribute, object),
                   [&](bool value) { sink.integer(parameter, value ? 1 : 0); });
    case AttributeKind::date:
        return put(valueOf<Date>(attribute, object),
                   [&](Date value) { sink.integer(parameter, microsecondsSince1970(value)); });
    case AttributeKind::uuid:
        return put(valueOf<Uuid>(attribute, object),
                   [&](const Uuid& value) { sink.text(parameter, value.text(), false); });
    case AttributeKind::textList:
        return put(valueOf<std::vector<std::string>>(attribute, object),
                   [&](const auto& value) { sink.text(parameter, listText(value), false); });
    case AttributeKind::enumeration:
        if (const auto raw = attribute.rawValue(object)) return sink.text(parameter, *raw, true);
        return sink.null(parameter);
    }
}

/// False if the column holds something else than the attribute's kind.
bool decodeAttribute(const AttributeDescription& attribute, Object& object, const Statement& row,
                     int column) {
    const int type = row.type(column);
    if (type == SQLITE_NULL) return attribute.isOptional;
    const auto isInteger = type == SQLITE_INTEGER;
    const auto isText = type == SQLITE_TEXT;
    switch (attribute.kind) {
    case AttributeKind::text:
        if (isText) assign(attribute, object, std::string(row.text(column)));
        return isText;
    case AttributeKind::integer:
        if (isInteger) assign(attribute, object, row.integer(column));
        return isInteger;
    case AttributeKind::real:
        if (isInteger || type == SQLITE_FLOAT) assign(attribute, object, row.real(column));
        return isInteger || type == SQLITE_FLOAT;
    case AttributeKind::boolean:
        if (isInteger) assign(attribute, object, row.integer(column) != 0);
        return isInteger;
    case AttributeKind::date:
        if (isInteger) assign(attribute, object, dateFromMicroseconds(row.integer(column)));
        return isInteger;
    case AttributeKind::uuid: {
        const auto uuid = isText ? Uuid::fromText(row.text(column)) : std::nullopt;
        if (uuid) assign(attribute, object, *uuid);
        return uuid.has_value();
    }
    case AttributeKind::textList: {
        auto list = isText ? listFromText(row.text(column)) : std::nullopt;
        if (!list) return false;
        assign(attribute, object, *std::move(list));
        return true;
    }
    case AttributeKind::enumeration:
        return isText && attribute.assignRawValue(object, row.text(column));
    }
    return false;
}

} // namespace

std::vector<std::string> RowCodec::columns() const {
    std::vector<std::string> names;
    for (const auto& attribute : entity_.attributes())
        names.push_back(quoted(attribute.name));
    for (const auto& relationship : entity_.toOnes())
        names.push_back(quoted(relationship.name));
    return names;
}

std::vector<std::string> RowCodec::createStatements() const {
    const std::string table = quoted(entity_.name());
    std::vector<std::string> parts{R"("_id" INTEGER PRIMARY KEY AUTOINCREMENT)"};
    std::vector<std::string> statements(1);
    for (const auto& attribute : entity_.attributes())
        parts.push_back(quoted(attribute.name) + ' ' + columnType(attribute));
    for (const auto& relationship : entity_.toOnes()) {
        // Checked at the end of a transaction: a save writes rows in the order that suits it.
        parts.push_back(fmt::format(R"("{}" INTEGER REFERENCES "{}"("_id") DEFERRABLE INITIALLY DEFERRED)",
                                    relationship.name, relationship.target().name()));
        statements.push_back(
            fmt::format(R"(CREATE INDEX "{0}_{1}" ON "{0}"("{1}"))", entity_.name(), relationship.name));
    }
    statements.front() = fmt::format("CREATE TABLE {} ({}) STRICT", table, fmt::join(parts, ", "));
    return statements;
}

std::string RowCodec::select(const char* which) const {
    return fmt::format(R"(SELECT "_id"{}{} FROM "{}" {})", columns().empty() ? "" : ", ",
                       fmt::join(columns(), ", "), entity_.name(), which);
}

std::string RowCodec::selectAll() const {
    return select(R"(ORDER BY "_id")");
}

std::string RowCodec::selectRow() const {
    return select(R"(WHERE "_id" = ?1)");
}

std::string RowCodec::insertRow() const {
    std::string parameters = "?1";
    std::string names = "\"_id\"";
    int parameter = 2;
    for (const auto& column : columns()) {
        names += ", " + column;
        parameters += fmt::format(", ?{}", parameter++);
    }
    return fmt::format(R"(INSERT INTO "{}" ({}) VALUES ({}))", entity_.name(), names, parameters);
}

std::string RowCodec::updateRow(bool withRelationships) const {
    auto names = columns();
    if (!withRelationships) names.resize(entity_.attributes().size());
    std::vector<std::string> assignments;
    int parameter = 2;
    for (const auto& column : names)
        assignments.push_back(fmt::format("{} = ?{}", column, parameter++));
    return fmt::format(R"(UPDATE "{}" SET {} WHERE "_id" = ?1)", entity_.name(),
                       fmt::join(assignments, ", "));
}

std::string RowCodec::deleteRow() const {
    return fmt::format(R"(DELETE FROM "{}" WHERE "_id" = ?1)", entity_.name());
}

void RowCodec::encode(Object& object, bool withRelationships, RowSink& sink) const {
    int parameter = 1;
    sink.integer(parameter++, ObjectAccess::row(object));
    for (const auto& attribute : entity_.attributes())
        encodeAttribute(attribute, object, parameter++, sink);
    if (!withRelationships) return;
    for (const auto& relationship : entity_.toOnes()) {
        const Object* target = ObjectAccess::target(relationship.toOne(object));
        if (target != nullptr)
            sink.integer(parameter++, ObjectAccess::row(*target));
        else
            sink.null(parameter++);
    }
}

void RowCodec::decodeAttributes(const Statement& row, const Database& database, Object& object) const {
    int column = 1;
    for (const auto& attribute : entity_.attributes())
        if (!decodeAttribute(attribute, object, row, column++))
            throw database.damaged(fmt::format("row {} of {} holds no valid {}", row.integer(0),
                                               entity_.name(), attribute.name));
}

void RowCodec::decode(const Statement& row, const Database& database, Object& object,
                      std::vector<std::int64_t>& targets) const {
    ObjectAccess::setRow(object, row.integer(0));
    decodeAttributes(row, database, object);
    int column = 1 + static_cast<int>(entity_.attributes().size());
    for (std::size_t i = 0; i < entity_.toOnes().size(); ++i)
        targets.push_back(row.integer(column++));
}

void RowCodec::restore(const Statement& row, const Database& database, Object& object) const {
    for (const auto& attribute : entity_.attributes())
        attribute.clear(object);
    decodeAttributes(row, database, object);
}

} // namespace velto::model
