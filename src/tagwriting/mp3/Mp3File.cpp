#include "tagwriting/mp3/Mp3File.hpp"

#include "id3/TagFrames.hpp"
#include "platform/text/PathParts.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace velto::id3 {

namespace {

constexpr off_t leastPadding = 1 << 10;
constexpr off_t paddingUnit = 1 << 10;
/// A room of more than this over what is needed (large frames that are gone now) is worth moving the audio
/// once.
constexpr off_t mostPadding = 128 << 10;
constexpr off_t blockSizeLimit = 64 << 10;
/// A tag beyond it is not taken into memory. Covers of a few MiB are the largest that are found.
constexpr off_t mostTag = 64 << 20;

/// The head of a file as a tag's header.
struct Head {
    std::array<std::uint8_t, tagHeaderSize> bytes{};
    std::size_t length = 0; ///< how many of the bytes the file has
    std::optional<TagHeader> header;

    explicit Head(const FileBytes& file)
        : length(file.read(bytes, 0)) {
        if (length == bytes.size()) header = tagHeader(bytes);
    }

    [[nodiscard]] bool isKnown() const { return header && header->knownVersion(); }
};

/// The header of the tag at the head of the file.
std::optional<TagHeader> headerOf(const FileBytes& file) {
    const Head head(file);
    if (!head.isKnown()) return std::nullopt;
    const off_t declared = head.header->size;
    if (declared > mostTag || declared > file.size() - static_cast<off_t>(tagHeaderSize))
        throw ID3TagEditorError(ID3TagEditorError::Case::corruptedFile);
    return head.header;
}

off_t roundedUp(off_t value, off_t unit) {
    return (value + unit - 1) / unit * unit;
}

/// The audio that shares a block with the end of the new tag. Written along with the tag, as it is, it spares
/// reading that block from the disk: making room has dropped the file's pages.
Bytes audioOfLastTagBlock(const FileBytes& file, const TagPlan& plan) {
    const off_t shared = roundedUp(plan.newLength, file.blockSize()) - plan.newLength;
    Bytes audio(static_cast<std::size_t>(shared));
    audio.resize(file.read(audio, plan.oldLength));
    return audio;
}

} // namespace

std::optional<Bytes> readTag(const std::filesystem::path& path) {
    if (lowercasedExtension(path.native()) != "mp3")
        throw ID3TagEditorError(ID3TagEditorError::Case::invalidFileFormat);
    return readTag(FileBytes(path, FileBytes::Mode::read));
}

std::optional<Bytes> readTag(const FileBytes& file) {
    const auto header = headerOf(file);
    if (!header) return std::nullopt;
    Bytes data(tagHeaderSize + header->size);
    // The file may have shrunk since its size was looked at.
    if (file.read(data, 0) != data.size()) throw ID3TagEditorError(ID3TagEditorError::Case::corruptedFile);
    return data;
}

off_t tagLength(const FileBytes& file) {
    const auto header = headerOf(file);
    if (!header) return 0;
    const off_t length = static_cast<off_t>(tagHeaderSize + header->size);
    if (!header->hasFooter()) return length;
    // The flag alone is no reason to take ten bytes from the audio: the footer must be there.
    std::array<std::uint8_t, 3> mark{};
    const bool isThere = file.read(mark, length) == mark.size() && asText(mark) == "3DI";
    return isThere ? std::min(length + static_cast<off_t>(tagHeaderSize), file.size()) : length;
}

bool hasForeignTag(const FileBytes& file) {
    const Head head(file);
    if (head.length < 3 || !asText(head.bytes).starts_with("ID3")) return false;
    if (head.isKnown()) (void)headerOf(file); // refuses one that is cut short
    // If the size can be read in more than one way, so can the place where the audio begins.
    return !head.isKnown() || head.header->hasDoubtfulSize;
}

TagPlan TagPlan::make(const FileBytes& file, std::size_t tagSize) {
    const off_t needed = static_cast<off_t>(tagSize);
    const off_t room = tagLength(file);
    if (needed <= room && room - needed <= mostPadding) return {Step::headOnly, room, room};
    const off_t moved = roundedUp(needed + leastPadding, paddingUnit);
    const off_t block = file.blockSize();
    if (needed <= room || block > blockSizeLimit || file.size() == 0) return {Step::moveAudio, room, moved};
    return {Step::insertInFront, room, room + roundedUp(needed + leastPadding - room, block)};
}

void writeTag(FileBytes& file, const TagPlan& plan, Bytes tag,
              const std::function<void()>& beforeAudioMoves) {
    using Step = TagPlan::Step;
    bool inserted = false;
    if (plan.step == Step::insertInFront) {
        const Bytes audio = audioOfLastTagBlock(file, plan);
        inserted = file.insertInFront(plan.newLength - plan.oldLength);
        if (inserted) tag.insert(tag.end(), audio.begin(), audio.end());
    }
    const bool movesAudio = plan.step != Step::headOnly && !inserted;
    if (movesAudio && beforeAudioMoves) beforeAudioMoves();
    if (plan.oldLength > 0 && !inserted) file.write(std::array<std::uint8_t, tagHeaderSize>{}, 0);
    if (movesAudio) file.shiftTail(plan.oldLength, plan.newLength);
    const ByteView bytes(tag);
    file.write(bytes.subspan(tagHeaderSize), static_cast<off_t>(tagHeaderSize));
    file.write(bytes.first(tagHeaderSize), 0);
}

bool removeRoom(FileBytes& file) {
    Bytes block(static_cast<std::size_t>(file.blockSize()));
    for (off_t at = 0; at < mostTag; at += file.blockSize()) {
        if (file.blockSize() > blockSizeLimit || file.read(block, at) != block.size()) return false;
        if (std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; })) continue;
        const bool isTag = asText(block).starts_with("ID3");
        const bool isAudio = block[0] == 0xFF && block[1] >= 0xE0;
        return at > 0 && (isTag || isAudio) && file.removeFromFront(at);
    }
    return false;
}

} // namespace velto::id3
