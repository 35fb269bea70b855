#include "backend/Json.hpp"

#include <fmt/format.h>

#include <limits>

namespace velto::json {

namespace {

constexpr int maximumDepth = 512;
/// Above what a vocabulary of every genre there is takes. It bounds what a reply of small values grows to in
/// memory, and how long the main actor copies its names.
constexpr std::size_t maximumValues = 20'000;
/// A description names keys of the reply, which may be of any length.
constexpr std::size_t maximumDescription = 300;

/// A whole number in any spelling ("2", "2.0", "2e0") that fits.
std::optional<std::int64_t> wholeNumber(const nlohmann::json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return std::nullopt;
        return static_cast<std::int64_t>(number);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    if (!value.is_number_float()) return std::nullopt;
    const auto number = value.get<double>();
    // Doubles beyond 2^63 do not fit; -2^63 itself does.
    if (!(number >= -0x1p63 && number < 0x1p63)) return std::nullopt;
    const auto whole = static_cast<std::int64_t>(number);
    if (static_cast<double>(whole) != number) return std::nullopt;
    return whole;
}

} // namespace

std::string shortened(std::string text, std::size_t limit) {
    if (text.size() <= limit) return text;
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    text.resize(end);
    return text + "…";
}

CodingError::CodingError(const std::string& description)
    : Error(shortened(description, maximumDescription)) {}

nlohmann::json parse(std::string_view text) {
    using Event = nlohmann::json::parse_event_t;
    std::size_t values = 0;
    const auto limit = [&values](int depth, Event event, const nlohmann::json&) {
        if (depth > maximumDepth)
            throw CodingError(fmt::format("The JSON is nested over {} levels", maximumDepth));
        const bool isValue =
            event == Event::value || event == Event::object_start || event == Event::array_start;
        if (isValue && ++values > maximumValues)
            throw CodingError(fmt::format("The JSON holds over {} values", maximumValues));
        return true;
    };
    try {
        return nlohmann::json::parse(text, limit);
    } catch (const nlohmann::json::parse_error& error) {
        throw CodingError(fmt::format("The data is not valid JSON from byte {} on", error.byte));
    } catch (const nlohmann::json::exception&) {
        throw CodingError("The data is not valid JSON");
    }
}

void Decoder::fail(const std::string& problem) const {
    throw CodingError(fmt::format("{}: {}", place_, problem));
}

std::string Decoder::text() const {
    if (!value_.is_string()) fail(fmt::format("expected text but found {}", value_.type_name()));
    return value_.get<std::string>();
}

std::int64_t Decoder::integer() const {
    const auto number = wholeNumber(value_);
    if (!number) fail(fmt::format("expected an integer but found {}", value_.type_name()));
    return *number;
}

bool Decoder::boolean() const {
    if (!value_.is_boolean()) fail(fmt::format("expected a boolean but found {}", value_.type_name()));
    return value_.get<bool>();
}

std::vector<std::string> Decoder::texts() const {
    requireArray();
    std::vector<std::string> texts;
    texts.reserve(value_.size());
    for (std::size_t i = 0; i < value_.size(); ++i)
        texts.push_back(element(i).text());
    return texts;
}

Decoder Decoder::at(const char* key) const {
    requireObject();
    const auto member = value_.find(key);
    if (member == value_.end()) fail(fmt::format("the key \"{}\" is missing", key));
    return Decoder(*member, fmt::format("{}.{}", place_, key));
}

std::optional<Decoder> Decoder::find(const char* key) const {
    requireObject();
    const auto member = value_.find(key);
    if (member == value_.end() || member->is_null()) return std::nullopt;
    return Decoder(*member, fmt::format("{}.{}", place_, key));
}

std::optional<std::string> Decoder::optionalText(const char* key) const {
    const auto member = find(key);
    if (!member) return std::nullopt;
    return member->text();
}

std::optional<std::int64_t> Decoder::optionalInteger(const char* key) const {
    const auto member = find(key);
    if (!member) return std::nullopt;
    return member->integer();
}

std::optional<bool> Decoder::optionalBoolean(const char* key) const {
    const auto member = find(key);
    if (!member) return std::nullopt;
    return member->boolean();
}

std::optional<std::vector<std::string>> Decoder::optionalTexts(const char* key) const {
    const auto member = find(key);
    if (!member) return std::nullopt;
    return member->texts();
}

void Decoder::requireObject() const {
    if (!value_.is_object()) fail(fmt::format("expected an object but found {}", value_.type_name()));
}

void Decoder::requireArray() const {
    if (!value_.is_array()) fail(fmt::format("expected an array but found {}", value_.type_name()));
}

Decoder Decoder::element(std::size_t index) const {
    return Decoder(value_[index], fmt::format("{}[{}]", place_, index));
}

} // namespace velto::json
