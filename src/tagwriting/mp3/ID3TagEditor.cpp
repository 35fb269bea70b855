#include "tagwriting/mp3/ID3TagEditor.hpp"

#include "id3/ID3TagCreator.hpp"
#include "id3/ID3TagParser.hpp"
#include "id3/TagFrames.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <algorithm>

namespace velto::id3 {

std::optional<ID3Tag> ID3TagEditor::read(const std::filesystem::path& from) {
    const auto data = readTag(from);
    return data ? parseTag(*data) : std::nullopt;
}

std::optional<ID3Tag> ID3TagEditor::read(const FileBytes& from) {
    const auto data = readTag(from);
    return data ? parseTag(*data) : std::nullopt;
}

void ID3TagEditor::write(const ID3Tag& tag, const std::filesystem::path& to,
                         const std::optional<std::filesystem::path>& andSaveTo,
                         const std::function<void()>& beforeAudioMoves) {
    Bytes bytes = tagBytes(tag);
    std::optional<FileBytes> copy;
    if (andSaveTo) {
        std::filesystem::remove(*andSaveTo);
        copy.emplace(*andSaveTo, FileBytes::Mode::createNew);
        copy->copyContent(FileBytes(to, FileBytes::Mode::read));
    }
    FileBytes file = copy ? std::move(*copy) : FileBytes(to, FileBytes::Mode::readWrite);
    const auto plan = TagPlan::make(file, bytes.size());
    const std::size_t total = static_cast<std::size_t>(plan.newLength);
    const Bytes header = tagHeaderBytes(tag.properties.version, total - tagHeaderSize);
    bytes.resize(total, 0);
    std::copy(header.begin(), header.end(), bytes.begin());
    writeTag(file, plan, std::move(bytes), beforeAudioMoves);
}

bool ID3TagEditor::sameAudio(const std::filesystem::path& left, const std::filesystem::path& right) {
    return sameAudio(FileBytes(left, FileBytes::Mode::read), FileBytes(right, FileBytes::Mode::read));
}

bool ID3TagEditor::sameAudio(const FileBytes& left, const FileBytes& right) {
    return sameBytes(left, tagLength(left), right, tagLength(right));
}

} // namespace velto::id3
