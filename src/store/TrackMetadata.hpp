#pragma once

#include "platform/core/Date.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velto {

/// What is known of a song when its track is made or brought up to date. In an update an absent value leaves
/// the stored one as it is. `createdAt` counts at creation only.
struct TrackMetadata {
    std::optional<std::string> artist;
    std::optional<std::string> title;
    std::optional<std::string> album;
    std::optional<std::int64_t> trackNumber;
    std::optional<std::string> genre;
    std::optional<double> bpm;
    std::optional<double> durationSec;
    std::optional<std::int64_t> year;
    std::optional<std::vector<std::string>> genres;
    std::optional<std::vector<std::string>> regions;
    std::optional<std::string> era;
    std::optional<Date> createdAt;
    std::optional<Date> lastTagged;
};

} // namespace velto
