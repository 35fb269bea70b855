#pragma once

#include "local-backend/Document.hpp"
#include "platform/http/HttpClient.hpp"

#include <nlohmann/json.hpp>

#include <string>

namespace velto::test {

inline nlohmann::json selected(const nlohmann::json& value, const std::vector<local::SelectedField>& fields) {
    if (fields.empty() || value.is_null()) return value;
    nlohmann::json chosen;
    if (value.is_array()) {
        chosen = nlohmann::json::array();
        for (const auto& element : value)
            chosen.push_back(selected(element, fields));
        return chosen;
    }
    for (const auto& field : fields)
        chosen[field.alias] = selected(value.at(field.name), field.selection);
    return chosen;
}

/// The reply as a backend gives it: with what the request's document selects, and no more.
inline std::string asSelected(const http::Request& request, const std::string& reply) {
    auto body = nlohmann::json::parse(reply);
    const std::string document = nlohmann::json::parse(request.body).at("query");
    body["data"] = selected(body.at("data"), local::parseDocument(document).front().selection);
    return body.dump();
}

} // namespace velto::test
