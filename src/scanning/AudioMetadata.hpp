#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// What a file's tags yield; a field that the file does not tell is absent.
struct AudioMetadata {
    std::optional<std::string> artist;
    std::optional<std::string> title;
    std::optional<std::string> album;
    std::optional<std::int64_t> trackNumber;
    std::optional<std::string> genre;
    std::optional<double> bpm; ///< never filled by extraction
    std::optional<double> durationSec;
    std::optional<std::int64_t> year;
    std::optional<std::int64_t> bitrateKbps;  ///< never filled by extraction
    std::optional<std::int64_t> samplerateHz; ///< never filled by extraction
    std::optional<std::int64_t> channels;     ///< never filled by extraction

    bool operator==(const AudioMetadata&) const = default;
};

/// The same in one run of bytes, a third as large: a scan holds it for every file between reading and saving.
/// For this process only. Never empty.
[[nodiscard]] std::string packed(const AudioMetadata& metadata);
/// What `packed` was given.
[[nodiscard]] AudioMetadata unpacked(std::string_view bytes);

} // namespace velto
