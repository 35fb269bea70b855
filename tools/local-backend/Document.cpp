#include "Document.hpp"

#include <fmt/format.h>

#include <charconv>

namespace velto::local {

namespace {

// Deep enough for every operation of the product by far; bounds the recursion over foreign text.
constexpr int maximumDepth = 24;

void refuseTooDeep(int depth) {
    if (depth > maximumDepth) throw GraphQLError("Syntax Error: The document is nested too deeply.");
}

Literal parseLiteral(Lexer& lexer, bool variablesAllowed, int depth);

Literal parseComposite(Lexer& lexer, bool variablesAllowed, int depth) {
    refuseTooDeep(depth);
    if (lexer.accept("[")) {
        auto values = Literal::array();
        while (!lexer.accept("]"))
            values.push_back(parseLiteral(lexer, variablesAllowed, depth + 1));
        return values;
    }
    lexer.expect("{");
    auto fields = Literal::object();
    while (!lexer.accept("}")) {
        auto name = lexer.expectName();
        lexer.expect(":");
        fields[name] = parseLiteral(lexer, variablesAllowed, depth + 1);
    }
    return fields;
}

Literal parseNumber(const Token& token) {
    const auto parsed = Literal::parse(token.text, nullptr, false);
    if (!parsed.is_number())
        throw GraphQLError(fmt::format("Syntax Error: Invalid number \"{}\".", token.text));
    return parsed;
}

Literal parseLiteral(Lexer& lexer, bool variablesAllowed, int depth) {
    using Kind = Token::Kind;
    switch (lexer.peek().kind) {
    case Kind::integer:
    case Kind::floating:
        return parseNumber(lexer.next());
    case Kind::string:
        return lexer.next().text;
    case Kind::name: {
        const auto name = lexer.next().text;
        if (name == "null") return nullptr;
        if (name == "true" || name == "false") return name == "true";
        return name; // an enumeration's case
    }
    default:
        break;
    }
    if (variablesAllowed && lexer.accept("$")) return Literal{{"$", lexer.expectName()}};
    if (lexer.at("[") || lexer.at("{")) return parseComposite(lexer, variablesAllowed, depth);
    lexer.unexpected();
}

std::vector<SelectedField> parseSelection(Lexer& lexer, int depth);

SelectedField parseField(Lexer& lexer, int depth) {
    if (lexer.at("...")) throw GraphQLError("Syntax Error: Fragments are not supported.");
    SelectedField field;
    field.alias = field.name = lexer.expectName();
    if (lexer.accept(":")) field.name = lexer.expectName();
    if (lexer.accept("(")) {
        while (!lexer.accept(")")) {
            auto name = lexer.expectName();
            lexer.expect(":");
            field.arguments.emplace_back(std::move(name), parseLiteral(lexer, true, depth + 1));
        }
    }
    if (lexer.at("@")) throw GraphQLError("Syntax Error: Directives are not supported.");
    if (lexer.at("{")) field.selection = parseSelection(lexer, depth + 1);
    return field;
}

std::vector<SelectedField> parseSelection(Lexer& lexer, int depth) {
    refuseTooDeep(depth);
    lexer.expect("{");
    std::vector<SelectedField> fields;
    do
        fields.push_back(parseField(lexer, depth));
    while (!lexer.accept("}"));
    return fields;
}

std::vector<VariableDefinition> parseVariables(Lexer& lexer) {
    std::vector<VariableDefinition> variables;
    if (!lexer.accept("(")) return variables;
    while (!lexer.accept(")")) {
        VariableDefinition variable;
        lexer.expect("$");
        variable.name = lexer.expectName();
        lexer.expect(":");
        variable.type = parseTypeReference(lexer);
        if (lexer.accept("=")) variable.defaultValue = parseLiteral(lexer, false, 0);
        variables.push_back(std::move(variable));
    }
    return variables;
}

OperationDefinition parseOperation(Lexer& lexer) {
    OperationDefinition operation;
    if (!lexer.at("{")) {
        operation.mutation = lexer.at("mutation");
        if (!operation.mutation && !lexer.at("query")) lexer.unexpected();
        lexer.next();
        if (lexer.peek().kind == Token::Kind::name) operation.name = lexer.next().text;
        operation.variables = parseVariables(lexer);
        if (lexer.at("@")) throw GraphQLError("Syntax Error: Directives are not supported.");
    }
    operation.selection = parseSelection(lexer, 0);
    return operation;
}

} // namespace

TypeReference parseTypeReference(Lexer& lexer) {
    TypeReference type;
    type.list = lexer.accept("[");
    type.name = lexer.expectName();
    if (type.list) {
        type.elementRequired = lexer.accept("!");
        lexer.expect("]");
    }
    type.required = lexer.accept("!");
    return type;
}

std::string toString(const TypeReference& type) {
    const auto* mark = type.required ? "!" : "";
    if (!type.list) return type.name + mark;
    return fmt::format("[{}{}]{}", type.name, type.elementRequired ? "!" : "", mark);
}

std::vector<OperationDefinition> parseDocument(std::string_view text) {
    Lexer lexer(text);
    std::vector<OperationDefinition> operations;
    do
        operations.push_back(parseOperation(lexer));
    while (lexer.peek().kind != Token::Kind::end);
    return operations;
}

} // namespace velto::local
