#include "media/AiffExport.hpp"

#include "id3/FrameBytes.hpp"
#include "id3/FrameIdentifiers.hpp"
#include "media/Id3Items.hpp"
#include "media/RiffChunks.hpp"
#include "platform/files/CopyContent.hpp"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

namespace velto::media {

namespace {

constexpr std::uint64_t chunkHeader = 8;
constexpr std::uint64_t sizeOfForm =
    4; ///< where the file's first chunk, which holds all others, has its size

void appendSize(std::string& bytes, std::size_t size) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(size >> shift & 0xFF);
}

void appendGenre(Id3Frames& tag, const std::string& text) {
    Id3Frame frame;
    frame.header.name = id3::frameDescription(id3::FrameName::genre).identifier(tag.version());
    frame.content = id3::contentBytes(id3::ID3FrameGenre{std::nullopt, text}, tag.version());
    tag.frames.push_back(std::move(frame));
}

/// The chunk with its header and the byte that an odd size is filled up with; empty for a tag without frames.
std::string id3Chunk(const std::string& name, const id3::Bytes& tag) {
    if (tag.empty()) return {};
    std::string chunk = name;
    appendSize(chunk, tag.size());
    chunk += id3::asText(tag);
    if (tag.size() % 2 != 0) chunk += '\0';
    return chunk;
}

/// Writes `source` to `output` with `chunk` in the place of its bytes from `begin` to `end`.
void replaceBytes(const FileReader& source, std::uint64_t begin, std::uint64_t end, const std::string& chunk,
                  int output) {
    const std::uint64_t size = source.size() - (end - begin) + chunk.size() - chunkHeader;
    if (size > std::numeric_limits<std::uint32_t>::max())
        throw MediaError(MediaError::Case::cannotWrite, source.path(), "it would be too large for its kind");
    std::string field;
    appendSize(field, size);
    // Sharing all blocks first costs nothing if the file system can, even if some go again.
    const bool isWritten =
        (::ioctl(output, FICLONE, source.descriptor()) == 0 ||
         files::appendBytes(source.descriptor(), 0, begin, output)) &&
        ::ftruncate(output, static_cast<off_t>(begin)) == 0 && ::lseek(output, 0, SEEK_END) >= 0 &&
        files::writeFully(output, chunk.data(), chunk.size()) &&
        files::appendBytes(source.descriptor(), end, source.size() - end, output) &&
        ::pwrite(output, field.data(), field.size(), sizeOfForm) == static_cast<ssize_t>(field.size());
    if (!isWritten)
        throw MediaError(MediaError::Case::cannotWrite, source.path(),
                         std::generic_category().message(errno));
}

} // namespace

void exportAiff(FileReader& source, int output, const std::function<bool(const MetadataItem&)>& drop,
                const std::optional<MetadataItem>& add) {
    const std::vector<Chunk> chunks = chunksOf(source, ByteOrder::big);
    if (chunks.size() >= maximumChunks || chunks.empty() ||
        std::any_of(chunks.begin(), chunks.end(), [](const Chunk& chunk) { return chunk.isCut; }))
        source.fail(MediaError::Case::damaged, "its chunks contradict its size");
    const auto old =
        std::find_if(chunks.begin(), chunks.end(), [](const Chunk& chunk) { return chunk.isId3(); });
    Id3Frames tag;
    if (old != chunks.end()) {
        auto found = id3FramesAt(source, old->offset, old->offset + old->size, Id3Content::everything);
        const auto front = static_cast<std::size_t>(std::min<std::uint64_t>(old->size, 10));
        if (!found && source.at(old->offset, front).find_first_not_of('\0') != std::string_view::npos)
            source.fail(MediaError::Case::damaged, "its tag is of a kind that cannot be read");
        if (found && !found->frames.empty()) tag = *std::move(found);
    }
    std::erase_if(tag.frames, [&](const Id3Frame& frame) { return drop(itemOfFrame(tag, frame)); });
    if (add) appendGenre(tag, *add->text());

    const bool isNew = old == chunks.end();
    const std::uint64_t begin = isNew ? chunks.back().end : old->offset - chunkHeader;
    const std::uint64_t end = isNew ? begin : old->end;
    std::string chunk = id3Chunk(isNew ? "ID3 " : old->name, renderedTag(tag));
    // Some writers leave out the byte that fills up an odd size.
    const Chunk& last = chunks.back();
    if (isNew && !chunk.empty() && last.size % 2 != 0 && last.end == last.offset + last.size)
        chunk.insert(0, 1, '\0');
    replaceBytes(source, begin, end, chunk, output);
}

} // namespace velto::media
