#include "platform/media/AiffEditor.hpp"

#include "platform/media/Id3View.hpp"
#include "platform/media/RiffChunks.hpp"
#include "platform/media/TagItems.hpp"
#include "platform/media/TagLibStreams.hpp"

#include <id3v2framefactory.h>
#include <id3v2tag.h>
#include <mpegfile.h>
#include <rifffile.h>

#include <algorithm>
#include <set>

namespace velto::media {

namespace {

constexpr std::size_t id3Header = 10;
constexpr std::size_t maximumChunks = 4096;

/// TagLib's rewriting of chunks, which it offers to subclasses alone.
class ChunkFile final : public TagLib::RIFF::File {
  public:
    explicit ChunkFile(const std::filesystem::path& path)
        : TagLib::RIFF::File(path.c_str(), BigEndian) {}

    [[nodiscard]] TagLib::Tag* tag() const override { return nullptr; }

    [[nodiscard]] TagLib::AudioProperties* audioProperties() const override { return nullptr; }

    bool save() override { return false; }

    void replace(const std::string& name, const std::string& content) {
        const TagLib::ByteVector chunk(name.data(), static_cast<unsigned int>(name.size()));
        if (content.empty())
            removeChunk(chunk);
        else
            setChunkData(chunk,
                         TagLib::ByteVector(content.data(), static_cast<unsigned int>(content.size())));
    }
};

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

    static void appendSize(std::string& bytes, std::size_t size, int count, int bitsEach) {
        for (int i = count - 1; i >= 0; --i)
            bytes += static_cast<char>(size >> (i * bitsEach) & ((1U << bitsEach) - 1));
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

} // namespace

void editAiff(const std::filesystem::path& path, const std::function<bool(const MetadataItem&)>& drop,
              const std::optional<MetadataItem>& add) {
    std::string chunkName = "ID3 ";
    std::string tag;
    {
        FileReader reader(path);
        const std::vector<Chunk> chunks = chunksOf(reader, ByteOrder::big);
        if (chunks.size() >= maximumChunks || chunks.empty() ||
            std::any_of(chunks.begin(), chunks.end(), [](const Chunk& chunk) { return chunk.isCut; }))
            reader.fail(MediaError::Case::damaged, "its chunks contradict its size");
        const auto id3 = std::find_if(chunks.begin(), chunks.end(), [](const Chunk& chunk) {
            return chunk.name == "ID3 " || chunk.name == "id3 ";
        });
        if (id3 != chunks.end()) {
            chunkName = id3->name;
            if (auto view = id3ViewAt(reader, id3->offset, id3->offset + id3->size, Id3Content::everything))
                tag = std::move(view->bytes);
        }
    }
    RawFrames frames(tag);
    frames.remove(droppedNames(tag, drop));
    if (add) frames.appendGenre(*add->text());
    ChunkFile file(path);
    if (!file.isValid() || file.readOnly()) throw MediaError(MediaError::Case::cannotWrite, path);
    file.replace(chunkName, frames.render());
}

} // namespace velto::media
