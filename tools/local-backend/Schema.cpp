#include "Schema.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>

namespace velto::local {

using nlohmann::json;

namespace {

// A value with its place in an object or a list, roughly.
constexpr std::size_t bytesAValue = 64;

/// Bytes that a copy takes, roughly.
std::size_t weigh(const json& value) {
    auto bytes = bytesAValue;
    if (value.is_string()) bytes += value.get_ref<const std::string&>().size();
    if (value.is_object())
        for (const auto& [key, field] : value.items())
            bytes += key.size() + weigh(field);
    if (value.is_array())
        for (const auto& element : value)
            bytes += weigh(element);
    return bytes;
}

json withVariables(const Literal& literal, const json& variables, std::size_t& room) {
    if (literal.is_object()) {
        if (const auto variable = literal.find("$"); variable != literal.end()) {
            const auto found = variables.find(variable->get<std::string>());
            if (found == variables.end()) return nullptr;
            const auto bytes = weigh(*found);
            if (bytes > room) throw GraphQLError("The request is nested too deeply or too large.");
            room -= bytes;
            return *found;
        }
        auto result = json::object();
        for (const auto& [key, value] : literal.items())
            result[key] = withVariables(value, variables, room);
        return result;
    }
    if (!literal.is_array()) return literal;
    auto result = json::array();
    for (const auto& value : literal)
        result.push_back(withVariables(value, variables, room));
    return result;
}

/// A long text of a reply would otherwise be in it as often as a document can name it.
void refuseRepeats(const std::vector<SelectedField>& selection) {
    std::set<std::string_view> seen;
    for (const auto& field : selection)
        if (!seen.insert(field.name).second)
            throw GraphQLError(fmt::format("The field \"{}\" is selected twice.", field.name));
}

bool isScalarOf(const json& value, const std::string& type) {
    if (type == "String") return value.is_string();
    if (type == "ID") return value.is_string() || value.is_number_integer();
    if (type == "Boolean") return value.is_boolean();
    if (type == "Float") return value.is_number();
    return type == "Int" && value.is_number_integer() && value.get<std::int64_t>() >= INT32_MIN &&
           value.get<std::int64_t>() <= INT32_MAX;
}

bool isScalar(const std::string& type) {
    constexpr std::string_view scalars[] = {"String", "ID", "Boolean", "Float", "Int"};
    return std::find(std::begin(scalars), std::end(scalars), type) != std::end(scalars);
}

} // namespace

Schema::Schema(std::string_view text) {
    Lexer lexer(text);
    while (lexer.peek().kind != Token::Kind::end) {
        if (!lexer.accept("type") && !lexer.accept("input")) lexer.unexpected();
        auto& fields = types_[lexer.expectName()];
        lexer.expect("{");
        while (!lexer.accept("}")) {
            auto& field = fields[lexer.expectName()];
            if (lexer.accept("(")) {
                while (!lexer.accept(")")) {
                    const auto argument = lexer.expectName();
                    lexer.expect(":");
                    field.arguments[argument] = parseTypeReference(lexer);
                }
            }
            lexer.expect(":");
            field.type = parseTypeReference(lexer);
        }
    }
}

const SchemaField& Schema::field(const std::string& type, const std::string& name) const {
    const auto& fields = types_.at(type);
    const auto found = fields.find(name);
    if (found == fields.end())
        throw GraphQLError(fmt::format("Cannot query field \"{}\" on type \"{}\".", name, type));
    return found->second;
}

void Schema::validate(const std::vector<SelectedField>& selection, const std::string& type) const {
    for (const auto& selected : selection) {
        if (selected.name == "__typename" && selected.selection.empty()) continue;
        const auto& known = field(type, selected.name);
        for (const auto& [name, value] : selected.arguments)
            if (!known.arguments.contains(name))
                throw GraphQLError(
                    fmt::format("Unknown argument \"{}\" on field \"{}.{}\".", name, type, selected.name));
        if (isScalar(known.type.name) != selected.selection.empty())
            throw GraphQLError(fmt::format("Field \"{}\" of type \"{}\" must {} a selection of subfields.",
                                           selected.name, toString(known.type),
                                           selected.selection.empty() ? "have" : "not have"));
        if (selected.selection.empty()) continue;
        refuseRepeats(selected.selection);
        validate(selected.selection, known.type.name);
    }
}

json Schema::variables(const OperationDefinition& operation, const json& given) const {
    auto complete = json::object();
    for (const auto& variable : operation.variables) {
        if (complete.contains(variable.name))
            throw GraphQLError(fmt::format("There can be only one variable named \"${}\".", variable.name));
        if (!isScalar(variable.type.name) && !types_.contains(variable.type.name))
            throw GraphQLError(fmt::format("Unknown type \"{}\".", variable.type.name));
        const auto found = given.find(variable.name);
        if (found == given.end() && !variable.defaultValue) {
            if (variable.type.required)
                throw GraphQLError(fmt::format("Variable \"${}\" of required type \"{}\" was not provided.",
                                               variable.name, toString(variable.type)));
            continue;
        }
        auto& value = complete[variable.name] = found == given.end() ? *variable.defaultValue : *found;
        coerce(value, variable.type, "$" + variable.name);
    }
    return complete;
}

json Schema::arguments(const SelectedField& selected, const std::string& type, const json& variables,
                       std::size_t& room) const {
    auto result = json::object();
    for (const auto& [name, literal] : selected.arguments)
        result[name] = withVariables(literal, variables, room);
    for (const auto& [name, wanted] : field(type, selected.name).arguments) {
        if (!result.contains(name) && wanted.required)
            throw GraphQLError(
                fmt::format("Field \"{}\" argument \"{}\" of type \"{}\" is required, but it was "
                            "not provided.",
                            selected.name, name, toString(wanted)));
        if (result.contains(name)) coerce(result[name], wanted, name);
    }
    return result;
}

void Schema::coerce(const json& value, const TypeReference& type, const std::string& where) const {
    if (value.is_null()) {
        if (type.required)
            throw GraphQLError(fmt::format("\"{}\" of type \"{}\" must not be null.", where, toString(type)));
        return;
    }
    if (!type.list) return coerceNamed(value, type.name, where);
    if (!value.is_array()) throw GraphQLError(fmt::format("\"{}\" must be a list.", where));
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i].is_null() && !type.elementRequired) continue;
        coerceNamed(value[i], type.name, fmt::format("{}[{}]", where, i));
    }
}

void Schema::coerceNamed(const json& value, const std::string& type, const std::string& where) const {
    if (isScalar(type)) {
        if (!isScalarOf(value, type))
            throw GraphQLError(fmt::format("\"{}\" cannot represent a value of type \"{}\".", where, type));
        return;
    }
    if (!value.is_object())
        throw GraphQLError(fmt::format("\"{}\" must be an object of type \"{}\".", where, type));
    const auto& fields = types_.at(type);
    for (const auto& [key, unused] : value.items())
        if (!fields.contains(key))
            throw GraphQLError(
                fmt::format("Field \"{}\" is not defined by type \"{}\" (at \"{}\").", key, type, where));
    for (const auto& [name, known] : fields) {
        const auto found = value.find(name);
        if (found == value.end() && known.type.required)
            throw GraphQLError(fmt::format("Field \"{}.{}\" of required type \"{}\" was not provided.", where,
                                           name, toString(known.type)));
        if (found != value.end()) coerce(*found, known.type, where + "." + name);
    }
}

json Schema::projectObject(const json& value, const std::vector<SelectedField>& selection,
                           const std::string& type) const {
    if (value.is_null()) return nullptr;
    auto result = json::object();
    for (const auto& selected : selection)
        result[selected.alias] = selected.name == "__typename"
                                     ? json(type)
                                     : project(value.value(selected.name, json()), selected, type);
    return result;
}

json Schema::project(const json& value, const SelectedField& selected, const std::string& parentType) const {
    const auto& type = field(parentType, selected.name).type;
    if (selected.selection.empty()) return value;
    if (!value.is_array()) return projectObject(value, selected.selection, type.name);
    auto result = json::array();
    for (const auto& element : value)
        result.push_back(projectObject(element, selected.selection, type.name));
    return result;
}

} // namespace velto::local
