#include "Lexer.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace velto::local {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isName(char c) {
    return isNameStart(c) || isDigit(c);
}

} // namespace

Lexer::Lexer(std::string_view text)
    : text_(text)
    , token_(read()) {}

Token Lexer::next() {
    return std::exchange(token_, read());
}

bool Lexer::at(std::string_view wanted) const {
    return (token_.kind == Token::Kind::punctuator || token_.kind == Token::Kind::name) &&
           token_.text == wanted;
}

bool Lexer::accept(std::string_view wanted) {
    if (!at(wanted)) return false;
    next();
    return true;
}

void Lexer::expect(std::string_view punctuator) {
    if (!accept(punctuator))
        throw GraphQLError(fmt::format("Syntax Error: Expected \"{}\", found {}.", punctuator,
                                       token_.kind == Token::Kind::end ? "<EOF>" : '"' + token_.text + '"'));
}

std::string Lexer::expectName() {
    if (token_.kind != Token::Kind::name) unexpected();
    return next().text;
}

void Lexer::unexpected() const {
    if (token_.kind == Token::Kind::end) throw GraphQLError("Syntax Error: Unexpected <EOF>.");
    throw GraphQLError(fmt::format("Syntax Error: Unexpected \"{}\".", token_.text));
}

void Lexer::skipIgnored() {
    while (position_ < text_.size()) {
        const char c = text_[position_];
        if (c == '#')
            position_ = std::min(text_.find_first_of("\r\n", position_), text_.size());
        else if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',')
            ++position_;
        else if (text_.substr(position_, 3) == "\xEF\xBB\xBF")
            position_ += 3;
        else
            return;
    }
}

Token Lexer::read() {
    skipIgnored();
    if (position_ == text_.size()) return {};
    const char c = text_[position_];
    if (isNameStart(c)) {
        const auto start = position_;
        while (position_ < text_.size() && isName(text_[position_]))
            ++position_;
        return {Token::Kind::name, std::string(text_.substr(start, position_ - start))};
    }
    if (isDigit(c) || c == '-') return readNumber();
    if (c == '"') return readString();
    if (text_.substr(position_, 3) == "...") {
        position_ += 3;
        return {Token::Kind::punctuator, "..."};
    }
    if (std::string_view("!$&()[]{}:=@|").find(c) == std::string_view::npos)
        throw GraphQLError("Syntax Error: Unexpected character.");
    ++position_;
    return {Token::Kind::punctuator, std::string(1, c)};
}

Token Lexer::readNumber() {
    const auto start = position_;
    bool floating = false;
    ++position_;
    while (position_ < text_.size() && (isName(text_[position_]) || text_[position_] == '.' ||
                                        text_[position_] == '+' || text_[position_] == '-')) {
        floating = floating || !isDigit(text_[position_]);
        ++position_;
    }
    return {floating ? Token::Kind::floating : Token::Kind::integer,
            std::string(text_.substr(start, position_ - start))};
}

Token Lexer::readString() {
    if (text_.substr(position_, 3) == "\"\"\"")
        throw GraphQLError("Syntax Error: Block strings are not supported.");
    std::string value;
    for (++position_; position_ < text_.size() && text_[position_] != '"' && text_[position_] != '\n';
         ++position_) {
        if (text_[position_] != '\\') {
            value += text_[position_];
            continue;
        }
        constexpr std::string_view escapes = "\"\\/bfnrt", meanings = "\"\\/\b\f\n\r\t";
        const auto which =
            ++position_ < text_.size() ? escapes.find(text_[position_]) : std::string_view::npos;
        if (which == std::string_view::npos)
            throw GraphQLError("Syntax Error: Invalid character escape sequence.");
        value += meanings[which];
    }
    if (position_ == text_.size() || text_[position_] != '"')
        throw GraphQLError("Syntax Error: Unterminated string.");
    ++position_;
    return {Token::Kind::string, std::move(value)};
}

} // namespace velto::local
