#pragma once

#include "Lexer.hpp"

#include <nlohmann/json.hpp>

#include <optional>
#include <utility>
#include <vector>

namespace velto::local {

/// "[TrackTagsData!]!" and the like; lists are one deep.
struct TypeReference {
    std::string name;
    bool list = false;
    bool required = false;        ///< The outer "!".
    bool elementRequired = false; ///< A list's inner "!".
};

[[nodiscard]] TypeReference parseTypeReference(Lexer& lexer);
[[nodiscard]] std::string toString(const TypeReference& type);

/// A literal in the document. A variable is held in it as the object {"$": name}, which no literal can be.
using Literal = nlohmann::json;

struct SelectedField {
    std::string alias; ///< Key in the reply: the name if no alias was written.
    std::string name;
    std::vector<std::pair<std::string, Literal>> arguments;
    std::vector<SelectedField> selection; ///< Empty if none was written.
};

struct VariableDefinition {
    std::string name;
    TypeReference type;
    std::optional<Literal> defaultValue;
};

struct OperationDefinition {
    bool mutation = false;
    std::string name;
    std::vector<VariableDefinition> variables;
    std::vector<SelectedField> selection;
};

/// The operations of a document: named or anonymous queries and mutations with variables, arguments, aliases
/// and nested selections. Fragments, directives and subscriptions are refused. Fails with GraphQLError.
[[nodiscard]] std::vector<OperationDefinition> parseDocument(std::string_view text);

} // namespace velto::local
