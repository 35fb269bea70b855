#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/concurrency/Task.hpp"
#include "scanning/FilesystemScanner.hpp"
#include "scanning/Scanner.hpp"
#include "store/Entities.hpp"

#include <filesystem>
#include <vector>

namespace velto {

/// The files that a scan of the library would take in and the store does not know, or knows as missing; in
/// the order of the walk, by the scan's own walker. Nothing is changed. Main actor, which it never holds for
/// long; the folder is walked on the pool. Throws ScannerError libraryNotAccessible, the walker's errors, and
/// CancellationError soon after the token was cancelled.
Task<std::vector<std::filesystem::path>> unindexedFiles(ModelContext& modelContext, Executors executors,
                                                        FilesystemScanner& walker, LibraryRef library,
                                                        ScanTerms terms, CancellationToken token);

} // namespace velto
