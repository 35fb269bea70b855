#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Task.hpp"
#include "store/Entities.hpp"

#include <string>

namespace velto {

/// After the program itself has written a file's genre: what its record is to know of it, so that a scan
/// neither takes the text for somebody else's nor loses sight of the file if it is renamed before the next
/// scan. The signature stays: the next scan reads the file as a changed one. Main actor; the file is asked on
/// the pool.
Task<void> noteWritten(Executors executors, FileItemRef file, std::string genreText);

} // namespace velto
