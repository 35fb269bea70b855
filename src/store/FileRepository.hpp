#pragma once

#include "platform/concurrency/Clock.hpp"
#include "store/Entities.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto {

/// By relPath; the keys are the records' own texts.
using FilesByPath = std::unordered_map<std::string_view, FileItemRef>;

/// The files of a library, for a scan: whoever runs it saves, and clears the mark that changes are pending.
/// Main actor; what is given to the constructor outlives the object.
class FileRepository {
  public:
    FileRepository(ModelContext& modelContext, const Clock& clock)
        : modelContext_(modelContext)
        , clock_(clock) {}

    /// The library's files, gathered in turns that give way; of two with one path the first.
    Task<FilesByPath> filesByPath(LibraryRef library);

    /// Writes the four values as given, absent ones too, and the moment of the scan.
    Task<void> updateAudioProperties(FileItemRef file, std::optional<double> durationSec,
                                     std::optional<std::int64_t> bitrateKbps,
                                     std::optional<std::int64_t> samplerateHz,
                                     std::optional<std::int64_t> channels);

    /// The files become `missing`, in turns that give way. `gone` is not copied and must live until the
    /// operation has ended.
    Task<void> markMissing(const std::vector<FileItemRef>& gone);

    /// Set by every operation that changes an object, and by callers that change one themselves.
    bool pendingSaves = false;

  private:
    ModelContext& modelContext_;
    const Clock& clock_;
};

} // namespace velto
