#pragma once

#include "backend/AnyCodable.hpp"
#include "platform/core/Error.hpp"

#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velto {

/// One element of a reply's "errors".
struct GraphQLError {
    std::string message;
    std::optional<std::vector<std::string>> path;
    std::optional<std::map<std::string, AnyCodable>> extensions;

    static GraphQLError decode(const json::Decoder& from);
};

class GraphQLClientError : public Error {
  public:
    enum class Case {
        networkError,
        graphQLErrors,
        decodingError,
        invalidURL,
        invalidResponse,
        unauthorized,
        noToken,
        openToOthers ///< a token would leave this computer unprotected
    };

    /// For the cases without a payload.
    explicit GraphQLClientError(Case kind);
    /// For networkError and decodingError.
    GraphQLClientError(Case kind, const std::exception_ptr& underlying);
    /// graphQLErrors.
    explicit GraphQLClientError(std::vector<GraphQLError> errors);

    [[nodiscard]] Case kind() const { return kind_; }

    [[nodiscard]] const std::exception_ptr& underlying() const { return underlying_; }

    [[nodiscard]] const std::vector<GraphQLError>& errors() const { return errors_; }

  private:
    Case kind_;
    std::exception_ptr underlying_;
    std::vector<GraphQLError> errors_;
};

} // namespace velto
