#include "scanning/MetadataExtractor.hpp"

#include "platform/files/ServiceError.hpp"
#include "platform/text/EncodedText.hpp"
#include "platform/text/PathParts.hpp"
#include "platform/text/Text.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

namespace velto {

namespace {

using media::MetadataItem;

std::optional<std::string> textOf(const MetadataItem& item) {
    return item.text() != nullptr ? std::optional(*item.text()) : std::nullopt;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// The first four characters (not bytes) of a date.
std::string_view yearText(std::string_view date) {
    std::size_t end = 0;
    for (int characters = 0; end < date.size() && characters < 4; ++characters) {
        ++end;
        while (end < date.size() && (static_cast<unsigned char>(date[end]) & 0xC0) == 0x80)
            ++end;
    }
    return date.substr(0, end);
}

/// A whole text that is a decimal integer with or without a sign.
std::optional<std::int64_t> decimalInteger(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

void applyCommonKey(AudioMetadata& metadata, const MetadataItem& item) {
    const std::string& key = *item.commonKey;
    if (key == media::common_key::artist) {
        metadata.artist = textOf(item);
    } else if (key == media::common_key::title) {
        metadata.title = textOf(item);
    } else if (key == media::common_key::albumName) {
        metadata.album = textOf(item);
    } else if (key == media::common_key::type) {
        metadata.genre = textOf(item);
    } else if (key == media::common_key::creationDate && item.text() != nullptr) {
        if (const auto year = decimalInteger(yearText(*item.text()))) metadata.year = year;
    }
}

bool isGenreIdentifier(std::string_view identifier) {
    return identifier == media::identifier::iTunesUserGenre ||
           identifier == media::identifier::id3ContentType || identifier.ends_with("/©gen") ||
           contains(identifier, "genre") || contains(identifier, "gnre");
}

bool isGenreKey(std::string_view keySpace, std::string_view key) {
    if ((keySpace == media::key_space::iTunes || contains(keySpace, "itunes")) &&
        (key == "©gen" || key == "gnre" || contains(key, "genre")))
        return true;
    return keySpace == media::key_space::userData && key == "©gen";
}

bool tellsGenre(const MetadataItem& item) {
    if (item.identifier && isGenreIdentifier(*item.identifier)) return true;
    if (item.keySpace && item.key && isGenreKey(*item.keySpace, *item.key)) return true;
    return item.text() != nullptr && !item.text()->empty() &&
           contains(text::lowercased(item.description), "genre");
}

std::vector<std::string_view> piecesAtDashes(std::string_view name) {
    std::vector<std::string_view> pieces;
    while (!name.empty()) {
        const auto dash = std::min(name.find('-'), name.size());
        if (dash > 0) pieces.push_back(text::trimmedOfBlanks(name.substr(0, dash)));
        name.remove_prefix(std::min(dash + 1, name.size()));
    }
    return pieces;
}

/// The last component without its extension, as a text: a name that is not UTF-8 is read as Latin-1, in which
/// every byte is a character.
std::string nameAsText(const std::filesystem::path& file) {
    std::string_view name = lastPathComponent(file.native());
    if (const auto extension = pathExtension(name); !extension.empty())
        name.remove_suffix(extension.size() + 1);
    return text::toUtf8OrLatin1(name);
}

/// Asked only if reading has failed: a look at each file first would be one more system call for every
/// song.
void checkExists(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        throw ServiceError(ServiceError::Case::fileNotFound, file.native());
}

const std::set<std::string>& extensions() {
    static const std::set<std::string> all{"mp3", "m4a", "aac", "flac", "wav", "aiff", "aif"};
    return all;
}

} // namespace

AudioMetadata metadataFromItems(const std::vector<MetadataItem>& items) {
    AudioMetadata metadata;
    for (const MetadataItem& item : items)
        if (item.commonKey) applyCommonKey(metadata, item);
    if (!metadata.genre) {
        const auto found = std::find_if(items.begin(), items.end(), tellsGenre);
        if (found != items.end()) metadata.genre = textOf(*found);
    }
    const auto track = std::find_if(items.begin(), items.end(), [](const MetadataItem& item) {
        return item.identifier && contains(*item.identifier, "trackNumber");
    });
    if (track != items.end()) metadata.trackNumber = track->numberValue;
    return metadata;
}

void fillFromFileName(AudioMetadata& metadata, const std::filesystem::path& file) {
    if (metadata.artist || metadata.title) return;
    const std::string name = nameAsText(file);
    const std::vector<std::string_view> pieces = piecesAtDashes(name);
    if (!pieces.empty()) metadata.artist = pieces[0];
    metadata.title = pieces.size() < 2 ? name : std::string(pieces[1]);
}

SimpleMetadataExtractor::SimpleMetadataExtractor(CrashReporter& crashReporter)
    : crashReporter_(crashReporter) {}

const std::set<std::string>& SimpleMetadataExtractor::supportedExtensions() const {
    return extensions();
}

Task<AudioMetadata> SimpleMetadataExtractor::extractMetadata(std::filesystem::path file) {
    const std::string_view extension = pathExtension(file.native());
    if (!extensions().contains(lowercasedExtension(file.native()))) {
        checkExists(file);
        throw ServiceError(ServiceError::Case::unsupportedFileType, std::string(extension));
    }
    try {
        const media::Asset asset = media::openAsset(file);
        AudioMetadata metadata = metadataFromItems(asset.items);
        if (std::isfinite(asset.durationSeconds)) metadata.durationSec = asset.durationSeconds;
        fillFromFileName(metadata, file);
        co_return metadata;
    } catch (const std::exception& failure) {
        checkExists(file);
        crashReporter_.recordError(failure);
        throw ServiceError(ServiceError::Case::metadataExtractionFailed, file.native(), describe(failure));
    }
}

} // namespace velto
