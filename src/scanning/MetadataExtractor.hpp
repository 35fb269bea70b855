#pragma once

#include "media/Asset.hpp"
#include "platform/concurrency/Task.hpp"
#include "platform/log/CrashReporter.hpp"
#include "scanning/AudioMetadata.hpp"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace velto {

/// Reads what a scan stores about a song from one audio file.
class AudioMetadataExtractor {
  public:
    virtual ~AudioMetadataExtractor() = default;

    /// Fails with ServiceError: fileNotFound, unsupportedFileType or metadataExtractionFailed.
    virtual Task<AudioMetadata> extractMetadata(std::filesystem::path file) = 0;

    /// Lower-case extensions without the dot.
    [[nodiscard]] virtual const std::set<std::string>& supportedExtensions() const = 0;
};

/// Stands on media. Does its reading inline on the caller's executor: call it on the pool. Holds no
/// mutable state.
class SimpleMetadataExtractor final : public AudioMetadataExtractor {
  public:
    /// `crashReporter` outlives the extractor; it gets the failure that caused every
    /// metadataExtractionFailed.
    explicit SimpleMetadataExtractor(CrashReporter& crashReporter);

    Task<AudioMetadata> extractMetadata(std::filesystem::path file) override;
    [[nodiscard]] const std::set<std::string>& supportedExtensions() const override;

  private:
    CrashReporter& crashReporter_;
};

/// Chooses the fields from a file's items; `bpm`, `durationSec` and the sound's format stay absent.
[[nodiscard]] AudioMetadata metadataFromItems(const std::vector<media::MetadataItem>& items);

/// Artist and title from a name such as "Artist - Title.mp3", for a file whose tags have neither.
void fillFromFileName(AudioMetadata& metadata, const std::filesystem::path& file);

} // namespace velto
