#include "backend/AnyCodable.hpp"

#include "backend/Json.hpp"

namespace velto {

AnyCodable AnyCodable::decode(const json::Decoder& from) {
    const nlohmann::json& value = from.value();
    if (value.is_number()) {
        try {
            return {from.integer()};
        } catch (const json::CodingError&) {
            return {value.get<double>()};
        }
    }
    if (value.is_string()) return {value.get<std::string>()};
    if (value.is_boolean()) return {value.get<bool>()};
    if (value.is_null()) return {nullptr};
    from.fail("Unsupported type");
}

nlohmann::json AnyCodable::encode() const {
    if (const auto* integer = std::any_cast<std::int64_t>(&value)) return *integer;
    if (const auto* number = std::any_cast<double>(&value)) return *number;
    if (const auto* text = std::any_cast<std::string>(&value)) return *text;
    if (const auto* boolean = std::any_cast<bool>(&value)) return *boolean;
    if (std::any_cast<std::nullptr_t>(&value) != nullptr) return nullptr;
    throw json::CodingError("Unsupported type");
}

} // namespace velto
