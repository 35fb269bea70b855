#pragma once

#include "flows/UserSession.hpp"
#include "store/Entities.hpp"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace velto::cli {

/// Keys in the order of the fields.
using Json = nlohmann::ordered_json;

// Each key is a field's name; an absent value is null, a date is ISO 8601 in UTC.
[[nodiscard]] Json toJson(const LibraryRef& library, Date now);
[[nodiscard]] Json toJson(const TrackRef& track);
[[nodiscard]] Json toJson(const ScanRunRef& run);
[[nodiscard]] Json toJson(const UserSession& session);

/// The value as one text. Bytes that are not UTF-8 (a file's name may hold any) become U+FFFD.
[[nodiscard]] std::string printed(const Json& value);

/// What printed() gives for an array of them, without ever holding them all as values.
[[nodiscard]] std::string printedArray(const std::vector<TrackRef>& tracks);

} // namespace velto::cli
