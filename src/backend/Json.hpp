#pragma once

#include "platform/core/Error.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// For sources only: public headers name what they need of this by forward declaration.

namespace velto::json {

/// What a server says to the user, in bytes: its texts are shown, logged and recorded.
constexpr std::size_t maximumMessage = 2000;

/// The text's beginning with "…" if it is longer than that many bytes.
[[nodiscard]] std::string shortened(std::string text, std::size_t limit = maximumMessage);

/// A reply that is not what it should be, or a value that JSON cannot hold. The text is short whatever the
/// size of the JSON.
class CodingError : public Error {
  public:
    explicit CodingError(const std::string& description);
};

/// Parses a reply. Nesting beyond 512 levels and more than 20,000 values are refused: records here are five
/// deep, and a reply is a stranger's.
[[nodiscard]] nlohmann::json parse(std::string_view text);

/// A JSON value and its place in the reply. Refers to the parsed document, which outlives it. Strict: no type
/// passes for another, a required key must be there, null is the same as absent if a value is optional. Every
/// failure is a CodingError that names the place.
class Decoder {
  public:
    explicit Decoder(const nlohmann::json& value, std::string place = "the reply")
        : value_(value)
        , place_(std::move(place)) {}

    [[nodiscard]] const nlohmann::json& value() const { return value_; }

    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::int64_t integer() const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] std::vector<std::string> texts() const;

    /// A member of this object.
    [[nodiscard]] Decoder at(const char* key) const;
    /// A member of this object that may be absent.
    [[nodiscard]] std::optional<Decoder> find(const char* key) const;

    [[nodiscard]] std::optional<std::string> optionalText(const char* key) const;
    [[nodiscard]] std::optional<std::int64_t> optionalInteger(const char* key) const;
    [[nodiscard]] std::optional<bool> optionalBoolean(const char* key) const;
    [[nodiscard]] std::optional<std::vector<std::string>> optionalTexts(const char* key) const;

    /// The elements of this array, each through T::decode.
    template <typename T>
    [[nodiscard]] std::vector<T> array() const {
        requireArray();
        std::vector<T> elements;
        elements.reserve(value_.size());
        for (std::size_t i = 0; i < value_.size(); ++i)
            elements.push_back(T::decode(element(i)));
        return elements;
    }

    [[noreturn]] void fail(const std::string& problem) const;

  private:
    void requireObject() const;
    void requireArray() const;
    [[nodiscard]] Decoder element(std::size_t index) const;

    const nlohmann::json& value_;
    std::string place_;
};

} // namespace velto::json
