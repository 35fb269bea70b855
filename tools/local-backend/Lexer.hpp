#pragma once

#include "platform/core/Error.hpp"

#include <string>
#include <string_view>

namespace velto::local {

/// A request that cannot be answered as it is; the text goes into the reply's `errors`.
class GraphQLError : public Error {
  public:
    using Error::Error;
};

struct Token {
    enum class Kind { end, name, punctuator, integer, floating, string };
    Kind kind = Kind::end;
    std::string text; ///< A string's value without quotes and escapes, otherwise as written.
};

/// Cuts GraphQL text into tokens, one ahead. Holds a view: the text outlives it. Fails with GraphQLError.
class Lexer {
  public:
    explicit Lexer(std::string_view text);

    [[nodiscard]] const Token& peek() const { return token_; }

    Token next();

    [[nodiscard]] bool at(std::string_view punctuatorOrName) const;
    /// Takes the token if it is this one.
    bool accept(std::string_view punctuatorOrName);
    void expect(std::string_view punctuator);
    std::string expectName();
    [[noreturn]] void unexpected() const;

  private:
    Token read();
    Token readNumber();
    Token readString();
    void skipIgnored();

    std::string_view text_;
    std::size_t position_ = 0;
    Token token_;
};

} // namespace velto::local
