#pragma once

#include "tagwriting/RewriteJournal.hpp"

#include <filesystem>
#include <string>
#include <vector>

/// Genres of MP4 and AIFF files: the media service makes an edited copy, which then takes the file's place.
/// Blocking. Throws ServiceError and the media service's errors; the original then remains.
namespace velto {

void exportWithGenres(const std::vector<std::string>& genres, const std::filesystem::path& file, bool append,
                      RewriteJournal& journal);

void exportWithoutGenres(const std::filesystem::path& file, RewriteJournal& journal);

} // namespace velto
