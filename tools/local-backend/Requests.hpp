#pragma once

#include <httplib.h>
#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto::local {

inline constexpr const char* billingPath = "/dashboard/billing";
inline constexpr const char* settingsPath = "/dashboard/settings";

/// Whether the request may come from this machine's own programs and pages. A Host that is not loopback is a
/// foreign name pointed at this address (DNS rebinding); a foreign Origin is another site's page.
[[nodiscard]] bool comesFromHere(const httplib::Request& request);

/// Where a sign-in may lead: an address "http://HOST:PORT/PATH" of a program on this computer that waits for
/// the token, or a page of this backend's dashboard. Nothing for any other text: the token would go astray.
[[nodiscard]] std::optional<std::string> signInTarget(std::string_view text);

using FormFields = std::vector<std::pair<std::string, std::string>>;

/// application/x-www-form-urlencoded, decoded.
[[nodiscard]] FormFields parseForm(std::string_view body);
[[nodiscard]] std::string firstField(const FormFields& fields, std::string_view name);
[[nodiscard]] std::vector<std::string> allFields(const FormFields& fields, std::string_view name);

/// A person's name as it is kept: valid UTF-8 without control characters, at most 200 bytes; nothing if
/// empty.
[[nodiscard]] std::optional<std::string> cleanName(std::string_view text);

/// The value of a cookie, or empty.
[[nodiscard]] std::string cookie(const httplib::Request& request, std::string_view name);

/// Parses JSON with bounds on depth and number of values; fails with GraphQLError.
[[nodiscard]] nlohmann::json parseBoundedJson(std::string_view text);

/// Reads a body of at most `limit` bytes, whatever its framing; otherwise the response has its status (413,
/// 400, 415) and there is no body.
[[nodiscard]] std::optional<std::string> readBody(const httplib::Request& request,
                                                  httplib::Response& response,
                                                  const httplib::ContentReader& reader, std::size_t limit);

} // namespace velto::local
