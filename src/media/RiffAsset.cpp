#include "media/Containers.hpp"
#include "media/Id3Items.hpp"
#include "media/RiffChunks.hpp"
#include "media/TagItems.hpp"
#include "media/TagLibStreams.hpp"

#include <aifffile.h>
#include <infotag.h>
#include <wavfile.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace velto::media {

namespace {

constexpr std::uint64_t fileHeader = 12;
constexpr std::uint64_t chunkHeader = 8;
/// Of all the text chunks of a file together: more is not a name, title or genre.
constexpr std::uint64_t maximumText = 1024 * 1024;
constexpr std::uint64_t maximumSize = 0xFFFFFFFF;

void appendNumber(std::string& bytes, std::uint64_t value, ByteOrder order) {
    const auto number = static_cast<std::uint32_t>(std::min(value, maximumSize));
    for (int i = 0; i < 4; ++i)
        bytes += static_cast<char>(number >> (order == ByteOrder::big ? 24 - 8 * i : 8 * i) & 0xFF);
}

/// Builds a file of the same kind out of some of its chunks.
class ChunkView {
  public:
    ChunkView(FileReader& reader, ByteOrder order)
        : reader_(reader)
        , order_(order) {
        std::string header = order == ByteOrder::big ? "FORM" : "RIFF";
        appendNumber(header, reader.size(), order);
        header += reader.at(8, 4);
        stream_.append(header);
    }

    void append(const Chunk& chunk) {
        appendContent(chunk, reader_.copy(chunk.offset, static_cast<std::size_t>(chunk.size)));
    }

    void appendContent(const Chunk& chunk, std::string content) {
        appendHeader(chunk.name, content.size());
        if (content.size() % 2 != 0) content += '\0';
        stream_.append(content);
    }

    void appendSound(const Chunk& chunk) {
        appendHeader(chunk.name, chunk.size);
        stream_.appendHole(chunk.size + chunk.size % 2);
    }

    TagLib::IOStream* stream() { return &stream_; }

  private:
    void appendHeader(const std::string& name, std::uint64_t size) {
        std::string header = name;
        appendNumber(header, size, order_);
        stream_.append(header);
    }

    FileReader& reader_;
    ByteOrder order_;
    ViewStream stream_;
};

/// The texts of the file's first tag that has any.
void takeId3(Id3Frames& tag, FileReader& reader, const Chunk& chunk) {
    if (!tag.frames.empty()) return;
    if (auto found = id3FramesAt(reader, chunk.offset, chunk.offset + chunk.size)) tag = *std::move(found);
}

/// What is left of maximumText; takes the chunk's size off if it fits.
bool takeRoom(std::uint64_t& textRoom, const Chunk& chunk) {
    if (chunk.size > textRoom) return false;
    textRoom -= chunk.size;
    return true;
}

double seconds(unsigned long long frames, int sampleRate) {
    return sampleRate > 0 && frames > 0 ? static_cast<double>(frames) / sampleRate
                                        : std::numeric_limits<double>::quiet_NaN();
}

/// Seconds by a "COMM" chunk of the usual kind. Its sample rate is an 80-bit number with a whole mantissa.
std::optional<double> plainDuration(std::string_view format) {
    if (format.size() < 18) return std::nullopt;
    const std::uint32_t frames = bigEndian32(format, 2);
    const auto exponent = static_cast<int>(bigEndian(format, 8, 2));
    const double rate = std::ldexp(static_cast<double>(bigEndian(format, 10, 8)), exponent - 16383 - 63);
    if (rate < 1'000 || rate > 1'000'000) return std::nullopt;
    return seconds(frames, static_cast<int>(std::lround(rate)));
}

/// Seconds by a "fmt " chunk of plain samples; absent for anything compressed.
std::optional<double> pcmDuration(std::string_view format, std::uint64_t soundSize) {
    const auto littleEndian = [&](std::size_t position, std::size_t count) {
        return __builtin_bswap32(
            static_cast<std::uint32_t>(bigEndian(format, position, count) << (32 - 8 * count)));
    };
    constexpr std::uint32_t pcm = 1;
    if (format.size() < 16 || littleEndian(0, 2) != pcm) return std::nullopt;
    const std::uint64_t frameSize = std::uint64_t{littleEndian(2, 2)} * ((littleEndian(14, 2) + 7) / 8);
    const std::uint32_t rate = littleEndian(4, 4);
    if (frameSize == 0 || frameSize > 64 || soundSize % frameSize != 0 || rate < 1'000 || rate > 1'000'000)
        return std::nullopt;
    return seconds(soundSize / frameSize, static_cast<int>(rate));
}

} // namespace

std::vector<Chunk> chunksOf(FileReader& reader, ByteOrder order) {
    std::vector<Chunk> chunks;
    std::uint64_t position = fileHeader;
    while (position + chunkHeader <= reader.size() && chunks.size() < maximumChunks) {
        const std::string header(reader.at(position, chunkHeader));
        std::uint32_t size = bigEndian32(header, 4);
        if (order == ByteOrder::little) size = __builtin_bswap32(size);
        const std::uint64_t offset = position + chunkHeader;
        const std::uint64_t length = std::min<std::uint64_t>(size, reader.size() - offset);
        position = offset + size;
        // An odd size is padded; some writers forget it.
        if (size % 2 != 0 && reader.at(position, 1) == std::string_view("\0", 1)) ++position;
        chunks.push_back({header.substr(0, 4), offset, length, position, length < size});
    }
    return chunks;
}

Asset openWave(FileReader& reader) {
    ChunkView view(reader, ByteOrder::little);
    std::optional<std::uint64_t> soundSize;
    std::string format;
    Id3Frames id3;
    bool hasOther = false;
    std::uint64_t textRoom = maximumText;
    for (const Chunk& chunk : chunksOf(reader, ByteOrder::little)) {
        if (chunk.name == "data" && !soundSize) {
            soundSize = chunk.size;
            view.appendSound(chunk);
        } else if (chunk.name == "fmt " && format.empty() && takeRoom(textRoom, chunk)) {
            format = reader.copy(chunk.offset, static_cast<std::size_t>(chunk.size));
            view.appendContent(chunk, format);
        } else if (chunk.name == "fmt " || chunk.name == "fact" || chunk.name == "LIST") {
            hasOther = true;
            if (takeRoom(textRoom, chunk)) view.append(chunk);
        } else if (chunk.isId3()) {
            takeId3(id3, reader, chunk);
        }
    }
    const auto duration = soundSize && !hasOther ? pcmDuration(format, *soundSize) : std::nullopt;
    if (duration) {
        Asset asset{{}, *duration};
        appendItems(asset.items, id3);
        return asset;
    }
    TagLib::RIFF::WAV::File file(view.stream(), true);
    const auto* properties = file.audioProperties();
    if (!soundSize || properties == nullptr || properties->sampleRate() <= 0)
        reader.fail(MediaError::Case::damaged, "no format or no sound data");
    Asset asset{{}, seconds(properties->sampleFrames(), properties->sampleRate())};
    if (file.hasInfoTag())
        appendItems(asset.items, *file.InfoTag(), id3.frames.empty() ? Genre::included : Genre::leftOut);
    appendItems(asset.items, id3);
    return asset;
}

Asset openAiff(FileReader& reader) {
    ChunkView view(reader, ByteOrder::big);
    Asset asset{};
    std::vector<std::string> formats;
    Id3Frames id3;
    bool hasSound = false;
    std::uint64_t textRoom = maximumText;
    for (const Chunk& chunk : chunksOf(reader, ByteOrder::big)) {
        if (chunk.name == "SSND") {
            hasSound = hasSound || chunk.size > 0;
            view.appendSound(chunk);
        } else if (chunk.name == "COMM" && takeRoom(textRoom, chunk)) {
            formats.push_back(reader.copy(chunk.offset, static_cast<std::size_t>(chunk.size)));
            view.appendContent(chunk, formats.back());
        } else if (chunk.isId3()) {
            takeId3(id3, reader, chunk);
        } else if ((chunk.name == "NAME" || chunk.name == "AUTH") && takeRoom(textRoom, chunk)) {
            appendAiffText(asset.items, chunk.name,
                           reader.copy(chunk.offset, static_cast<std::size_t>(chunk.size)));
        }
    }
    const auto duration = hasSound && formats.size() == 1 ? plainDuration(formats.front()) : std::nullopt;
    appendItems(asset.items, id3);
    if (duration) {
        asset.durationSeconds = *duration;
        return asset;
    }
    TagLib::RIFF::AIFF::File file(view.stream(), true);
    const auto* properties = file.audioProperties();
    if (properties == nullptr || properties->sampleRate() <= 0)
        reader.fail(MediaError::Case::damaged, "no format");
    asset.durationSeconds = seconds(properties->sampleFrames(), properties->sampleRate());
    return asset;
}

} // namespace velto::media
