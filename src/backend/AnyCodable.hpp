#pragma once

#include <nlohmann/json_fwd.hpp>

#include <any>

namespace velto {

namespace json {
class Decoder;
}

/// A scalar of JSON whose type only the server knows. Holds std::int64_t, double, std::string, bool, or
/// std::nullptr_t as the null marker.
struct AnyCodable {
    std::any value;

    /// Tries integer, floating point, text, boolean, null in this order; an object or array throws
    /// json::CodingError ("Unsupported type").
    static AnyCodable decode(const json::Decoder& from);
    /// Throws json::CodingError ("Unsupported type") for a value of any other type.
    [[nodiscard]] nlohmann::json encode() const;
};

} // namespace velto
