#pragma once

#include "platform/concurrency/Published.hpp"
#include "platform/concurrency/Task.hpp"
#include "scanning/AudioMetadata.hpp"
#include "scanning/ScanProgress.hpp"
#include "scanning/ScannerError.hpp"
#include "store/FileSystemInfo.hpp"
#include "store/LibraryRepository.hpp"
#include "store/ScanRunRepository.hpp"

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velto {

class AudioMetadataExtractor;
class FileSignatureGenerator;
class FilesystemScanner;

/// What a scanner is built from.
struct ScannerDependencies {
    std::shared_ptr<AudioMetadataExtractor> metadataExtractor;
    std::shared_ptr<FileSignatureGenerator> signatureGenerator;
    std::shared_ptr<FilesystemScanner> filesystemScanner;
    std::shared_ptr<LibraryRepository> libraryRepository;
    std::shared_ptr<ScanRunRepository> scanRunRepository;
};

/// What the caller knows about a scan beforehand.
struct ScanTerms {
    /// More than half of a large library may become missing; otherwise such a scan fails with
    /// manyFilesMissing.
    bool acceptsMissing = false;
    /// Another device stands at the library's path than the one that was granted: its drive under another
    /// number, or the empty mount point. Then the scan fails if it sees no file that the store knows.
    bool isOtherDevice = false;
};

/// What a scan leaves to its caller.
struct FinishedScan {
    ScanRunRef run;
    std::vector<std::string>
        orphanedTracks; ///< canonicalSigs of tracks whose last file became another song's
};

/// Reads a library's folder into the store, one scan at a time. Bound to the main actor.
class Scanner {
  public:
    virtual ~Scanner() = default;

    /// Scans to the end and gives the finished run. Throws ScannerError: scanAlreadyInProgress,
    /// libraryNotAccessible, manyFilesMissing, scanCancelled, and whatever else ended the scan (a pattern
    /// that takes too long, the store's errors).
    virtual Task<FinishedScan> scanLibrary(LibraryRef library, ScanTerms terms = {}) = 0;

    /// Asks the running scan to stop at its next checkpoint and clears the progress. The scan's own task ends
    /// with scanCancelled. Without a running scan it only clears the progress.
    virtual Task<void> cancelScan() = 0;

    /// Absent before the first scan and after one that finished or was cancelled. A scan that failed after
    /// the opening of its run leaves what it showed last: its caller, who got the failure, knows better.
    virtual Task<std::optional<ScanProgress>> scanProgress() = 0;

    /// The same value as an observable field, for whoever would rather be told than ask.
    [[nodiscard]] virtual Published<std::optional<ScanProgress>>& observableProgress() = 0;
};

/// One file's outcome of the read stage, held until the save.
struct ProcessResult {
    std::string relPath;
    std::unique_ptr<FileSystemInfo> fileInfo; ///< null once the file has its record
    std::string metadata;                     ///< packed; empty once it is used, and after an error
    std::string quickSig;
    std::exception_ptr error;
};

} // namespace velto
