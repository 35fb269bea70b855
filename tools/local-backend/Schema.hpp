#pragma once

#include "Document.hpp"

#include <map>

namespace velto::local {

struct SchemaField {
    TypeReference type;
    std::map<std::string, TypeReference> arguments;
};

/// What can be asked: built once from its text in the schema language (types and inputs only).
class Schema {
  public:
    explicit Schema(std::string_view text);

    /// The product's schema.
    [[nodiscard]] static const Schema& product();

    /// Checks names, arguments and selections against the type, before anything is done.
    void validate(const std::vector<SelectedField>& selection, const std::string& type) const;

    /// Bytes that a call's variables may take where they are mentioned, all mentions together. A request at
    /// the limits of its text and of its values, each variable mentioned once, stays below.
    static constexpr std::size_t roomForVariables = 128U << 20U;

    /// The arguments of a root field with the variables put in, as the input types want them. What the
    /// variables take is taken off `room`; if that is too little, it fails with GraphQLError.
    [[nodiscard]] nlohmann::json arguments(const SelectedField& field, const std::string& type,
                                           const nlohmann::json& variables, std::size_t& room) const;

    /// Cuts a full value of this type down to what was selected.
    [[nodiscard]] nlohmann::json project(const nlohmann::json& value, const SelectedField& field,
                                         const std::string& parentType) const;

    /// A request's variables, complete: defaults put in, required ones present, every value of its type.
    [[nodiscard]] nlohmann::json variables(const OperationDefinition& operation,
                                           const nlohmann::json& given) const;

  private:
    [[nodiscard]] const SchemaField& field(const std::string& type, const std::string& name) const;
    void coerce(const nlohmann::json& value, const TypeReference& type, const std::string& where) const;
    void coerceNamed(const nlohmann::json& value, const std::string& type, const std::string& where) const;
    [[nodiscard]] nlohmann::json projectObject(const nlohmann::json& value,
                                               const std::vector<SelectedField>& selection,
                                               const std::string& type) const;

    std::map<std::string, std::map<std::string, SchemaField>> types_;
};

} // namespace velto::local
