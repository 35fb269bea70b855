#pragma once

#include "store/Entities.hpp"
#include "store/FileSystemInfo.hpp"
#include "store/GenreTextParser.hpp"
#include "store/TrackMetadata.hpp"

#include <optional>
#include <string>
#include <unordered_set>

// What the direct and the batch repositories do alike, without a save. Main actor.

namespace velto::rules {

/// Adds the tags that the parser (may be null) recognises in the genre text, where none were given.
[[nodiscard]] TrackMetadata withRecognisedTags(TrackMetadata metadata, const GenreTextParser* parser);

/// Each value that is given replaces the stored one. An object that has them all stays unchanged.
void update(const TrackRef& track, TrackMetadata metadata);

/// Makes the file one of the track's. The track's createdAt becomes the earliest of its files'; a synced
/// track that had no file left is to be synced again.
void link(const FileItemRef& file, const TrackRef& track);

/// A file seen for the first time, related to its library and with it in the context.
[[nodiscard]] FileItemRef makeFile(const LibraryRef& library, const FileSystemInfo& info, Date now);

/// A file seen again: size, time and the moment.
void refresh(const FileItemRef& file, const FileSystemInfo& info, Date now);

/// Takes the creation date from the file system, where it has one.
void fetchCreationDate(const FileItemRef& file);

void setAudioProperties(const FileItemRef& file, std::optional<double> durationSec,
                        std::optional<std::int64_t> bitrateKbps, std::optional<std::int64_t> samplerateHz,
                        std::optional<std::int64_t> channels, Date now);
void markIfMissing(const FileItemRef& file, const std::unordered_set<std::string>& seen);
void setStatus(const FileItemRef& file, FileStatus status, std::optional<std::string> message);
void setSignatures(const FileItemRef& file, std::optional<std::string> quickSig,
                   std::optional<std::string> fileHash);

/// The date for a log line; "nil" where there is none.
[[nodiscard]] std::string dateText(std::optional<Date> date);

} // namespace velto::rules
