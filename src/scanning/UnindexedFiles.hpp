#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Task.hpp"
#include "store/Entities.hpp"

#include <filesystem>
#include <vector>

namespace velto {

/// The music files of the library's folder that the store does not know, in the order in which they are
/// found. Nothing is changed. Main actor, which it never holds for long; the folder is walked on the pool.
/// Throws ScannerError commandFailed.
Task<std::vector<std::filesystem::path>> unindexedFiles(ModelContext& modelContext, Executors executors,
                                                        LibraryRef library);

} // namespace velto
