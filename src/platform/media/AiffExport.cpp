#include "platform/media/AiffExport.hpp"

#include "platform/files/CopyContent.hpp"
#include "platform/media/Id3View.hpp"
#include "platform/media/RiffChunks.hpp"
#include "platform/media/TagItems.hpp"
#include "platform/media/TagLibStreams.hpp"

#include <id3v2framefactory.h>
#include <id3v2tag.h>
#include <linux/fs.h>
#include <mpegfile.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <set>

namespace velto::media {

namespace {

constexpr std::size_t id3Header = 10;
constexpr std::uint64_t chunkHeader = 8;
constexpr std::uint64_t sizeOfForm =
    4; ///< where the file's first chunk, which holds all others, tells its size

void appendSize(std::string& bytes, std::size_t size, int count, int bitsEach) {
    for (int i = count - 1; i >= 0; --i)
        bytes += static_cast<char>(size >> (i * bitsEach) & ((1U << bitsEach) - 1));
}

/// The raw frames of a tag as id3ViewAt gives it.
class RawFrames {
  public:
    explicit RawFrames(std::string tag)
        : tag_(std::move(tag))
        , version_(tag_.empty() ? 3 : static_cast<unsigned char>(tag_[3])) {}

    /// Takes out the frames with these names (as in versions 2.3 and 2.4).
    void remove(const std::set<std::string>& names) {
        std::string kept;
        for (std::size_t position = id3Header; position + header() <= tag_.size();) {
            const std::size_t length = header() + sizeAt(position);
            if (!names.contains(nameAt(position))) kept += tag_.substr(position, length);
            position += length;
        }
        frames_ = std::move(kept);
    }

    void appendGenre(const std::string& text) {
        const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
        std::string content;
        if (version_ == 4)
            content = '\3' + text;
        else if (ascii)
            content = '\0' + text;
        else {
            const auto wide = TagLib::String(text, TagLib::String::UTF8).data(TagLib::String::UTF16);
            content = '\1' + std::string(wide.data(), wide.size());
        }
        frames_ += version_ == 2 ? "TCO" : "TCON";
        appendSize(frames_, content.size(), version_ == 2 ? 3 : 4, version_ == 4 ? 7 : 8);
        if (version_ != 2) frames_.append(2, '\0');
        frames_ += content;
    }

    /// The whole tag; empty without frames.
    [[nodiscard]] std::string render() const {
        if (frames_.empty()) return {};
        std::string bytes = tag_.empty() ? std::string("ID3\3\0\0", 6) : tag_.substr(0, 6);
        appendSize(bytes, frames_.size(), 4, 7);
        return bytes + frames_;
    }

  private:
    [[nodiscard]] std::size_t header() const { return version_ == 2 ? 6 : 10; }

    [[nodiscard]] std::size_t sizeAt(std::size_t position) const {
        if (version_ == 2) return static_cast<std::size_t>(bigEndian(tag_, position + 3, 3));
        const std::uint32_t plain = bigEndian32(tag_, position + 4);
        if (version_ == 3) return plain;
        return (plain >> 24 & 0x7F) << 21 | (plain >> 16 & 0x7F) << 14 | (plain >> 8 & 0x7F) << 7 |
               (plain & 0x7F);
    }

    [[nodiscard]] std::string nameAt(std::size_t position) const {
        const std::string name = tag_.substr(position, version_ == 2 ? 3 : 4);
        return name == "TCO" ? "TCON" : name;
    }

    std::string tag_;
    unsigned version_;
    std::string frames_;
};

std::set<std::string> droppedNames(const std::string& tag,
                                   const std::function<bool(const MetadataItem&)>& drop) {
    std::set<std::string> names;
    if (tag.empty()) return names;
    ViewStream stream;
    stream.append(tag);
    stream.appendHole(1024);
    TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    if (!file.hasID3v2Tag()) return names;
    for (const TagLib::ID3v2::Frame* frame : file.ID3v2Tag()->frameList()) {
        const TagLib::ByteVector name = frame->frameID();
        if (drop(itemOfFrame(*frame))) names.emplace(name.data(), name.size());
    }
    return names;
}

/// The chunk with its header and the byte that an odd size is filled up with; empty for a tag without frames.
std::string id3Chunk(const std::string& name, const std::string& tag) {
    if (tag.empty()) return {};
    std::string chunk = name;
    appendSize(chunk, tag.size(), 4, 8);
    chunk += tag;
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
    appendSize(field, size, 4, 8);
    // Sharing all blocks first costs nothing where the file system can, also where some go again.
    const bool isWritten =
        (::ioctl(output, FICLONE, source.descriptor()) == 0 ||
         files::appendBytes(source.descriptor(), 0, begin, output)) &&
        ::ftruncate(output, static_cast<off_t>(begin)) == 0 && ::lseek(output, 0, SEEK_END) >= 0 &&
        files::writeFully(output, chunk.data(), chunk.size()) &&
        files::appendBytes(source.descriptor(), end, source.size() - end, output) &&
        ::pwrite(output, field.data(), field.size(), sizeOfForm) == static_cast<ssize_t>(field.size());
    if (!isWritten) throw MediaError(MediaError::Case::cannotWrite, source.path(), std::strerror(errno));
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
    std::string tag;
    if (old != chunks.end())
        if (auto view = id3ViewAt(source, old->offset, old->offset + old->size, Id3Content::everything))
            tag = std::move(view->bytes);
    RawFrames frames(tag);
    frames.remove(droppedNames(tag, drop));
    if (add) frames.appendGenre(*add->text());

    const bool isNew = old == chunks.end();
    const std::uint64_t begin = isNew ? chunks.back().end : old->offset - chunkHeader;
    const std::uint64_t end = isNew ? begin : old->end;
    std::string chunk = id3Chunk(isNew ? "ID3 " : old->name, frames.render());
    // Some writers leave out the byte that fills up an odd size.
    const Chunk& last = chunks.back();
    if (isNew && !chunk.empty() && last.size % 2 != 0 && last.end == last.offset + last.size)
        chunk.insert(0, 1, '\0');
    replaceBytes(source, begin, end, chunk, output);
}

} // namespace velto::media
