#include "media/MpegDuration.hpp"

#include <algorithm>
#include <array>

namespace velto::media {

namespace {

/// How far after the tag the first frame may lie, and how much junk between frames is searched.
constexpr std::uint64_t maximumJunk = 256 * 1024;
constexpr std::size_t walkBlock = 64 * 1024;

struct Frame {
    std::uint32_t size = 0; ///< bytes; 0 in a free-format stream, whose frames do not tell
    std::uint32_t samples = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t bitRate = 0; ///< bits a second
    std::uint32_t kind = 0;    ///< the header's bits that all frames of one stream share
};

namespace mpeg {

// Kilobits a second by table and index; index 0 is free format, 15 is forbidden.
constexpr std::array<std::array<std::uint16_t, 15>, 5> bitRates{{
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}, // version 1, layer 1
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},    // version 1, layer 2
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},     // version 1, layer 3
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},    // version 2, layer 1
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},         // version 2, layers 2 and 3
}};
constexpr std::array<std::uint32_t, 3> sampleRates{44100, 48000, 32000};

std::optional<Frame> parse(std::string_view bytes) {
    const std::uint32_t header = bigEndian32(bytes);
    const unsigned version = header >> 19 & 3; // 0: 2.5, 2: 2, 3: 1
    const unsigned layer = 4 - (header >> 17 & 3);
    const unsigned bitRate = header >> 12 & 15;
    const unsigned sampleRate = header >> 10 & 3;
    if (bytes.size() < 4 || header >> 21 != 0x7FF || version == 1 || layer == 4 || bitRate == 15 ||
        sampleRate == 3)
        return std::nullopt;
    const bool first = version == 3;
    const std::size_t table = first ? layer - 1 : layer == 1 ? 3 : 4;
    Frame frame;
    frame.kind = header & 0xFFFE0C00;
    frame.sampleRate = sampleRates[sampleRate] >> (first ? 0 : version == 2 ? 1 : 2);
    frame.bitRate = bitRates[table][bitRate] * 1000U;
    frame.samples = layer == 1 ? 384 : layer == 3 && !first ? 576 : 1152;
    const std::uint32_t padding = header >> 9 & 1;
    if (bitRate != 0)
        frame.size = layer == 1 ? (12 * frame.bitRate / frame.sampleRate + padding) * 4
                                : frame.samples / 8 * frame.bitRate / frame.sampleRate + padding;
    return frame;
}

/// The number of frames that a Xing, Info or VBRI header in the first frame gives.
std::optional<std::uint32_t> framesTold(std::string_view frame) {
    const bool first = (frame[1] & 0x08) != 0;
    const bool mono = (static_cast<unsigned char>(frame[3]) >> 6) == 3;
    const std::size_t sideInfo = first ? (mono ? 17 : 32) : (mono ? 9 : 17);
    for (const std::size_t position : {4 + sideInfo, 6 + sideInfo}) {
        if (frame.size() < position + 12) continue;
        const auto name = frame.substr(position, 4);
        if ((name == "Xing" || name == "Info") && (bigEndian32(frame, position + 4) & 1) != 0)
            return bigEndian32(frame, position + 8);
    }
    if (frame.size() >= 54 && frame.substr(36, 4) == "VBRI") return bigEndian32(frame, 50);
    return std::nullopt;
}

} // namespace mpeg

namespace adts {

constexpr std::array<std::uint32_t, 13> sampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                    22050, 16000, 12000, 11025, 8000,  7350};

std::optional<Frame> parse(std::string_view bytes) {
    if (bytes.size() < 7 || (bigEndian32(bytes) & 0xFFF60000) != 0xFFF00000) return std::nullopt;
    const std::uint64_t header = bigEndian(bytes, 0, 7);
    const std::size_t sampleRate = header >> 34 & 15;
    Frame frame;
    frame.size = static_cast<std::uint32_t>(header >> 13 & 0x1FFF);
    if (sampleRate >= sampleRates.size() || frame.size < 7) return std::nullopt;
    frame.sampleRate = sampleRates[sampleRate];
    frame.samples = 1024U * (static_cast<std::uint32_t>(header & 3) + 1);
    frame.kind = static_cast<std::uint32_t>(header >> 24) & 0xFFFEFC00;
    return frame;
}

} // namespace adts

using Parse = std::optional<Frame> (*)(std::string_view);

class Stream {
  public:
    Stream(FileReader& reader, Parse parse, std::uint64_t end)
        : reader_(reader)
        , parse_(parse)
        , end_(end) {}

    [[nodiscard]] std::optional<Frame> frameAt(std::uint64_t position) {
        return position < end_ ? parse_(reader_.at(position, 7)) : std::nullopt;
    }

    /// The first position from `begin` (up to `limit`) where a frame is followed by another of its stream or
    /// by the stream's end. `kind` holds the search to one stream.
    std::optional<std::uint64_t> find(std::uint64_t begin, std::uint64_t limit, std::uint32_t kind = 0) {
        limit = std::min(limit, end_);
        for (std::uint64_t position = begin; position < limit;) {
            const std::string_view block = reader_.at(
                position, static_cast<std::size_t>(std::min<std::uint64_t>(limit - position, 4096)));
            const auto sync = block.find('\xFF');
            if (sync == std::string_view::npos) {
                if (block.empty()) return std::nullopt;
                position += block.size();
                continue;
            }
            position += sync;
            if (isFrame(position, kind)) return position;
            ++position;
        }
        return std::nullopt;
    }

    /// Goes through the frames from `position`, over junk, until `seen` returns false or the stream ends. A
    /// frame that the end cuts off counts: players play what is there.
    template <class Seen>
    void walk(std::uint64_t position, std::uint32_t kind, const Seen& seen) {
        while (position < end_) {
            const auto frame = frameAt(position);
            if (!frame || frame->kind != kind || frame->size == 0) {
                const auto next = find(position + 1, position + 1 + maximumJunk, kind);
                if (!next) return;
                position = *next;
                continue;
            }
            if (!seen(*frame)) return;
            position += frame->size;
        }
    }

    /// The distance from a free-format frame to the next.
    std::optional<std::uint64_t> freeFormatSize(std::uint64_t position, const Frame& first) {
        constexpr std::uint64_t smallest = 24;
        constexpr std::uint64_t largest = 8 * 1024;
        for (std::uint64_t size = smallest; size < largest && position + size < end_; ++size) {
            const auto frame = frameAt(position + size);
            if (frame && frame->kind == first.kind && frame->size == 0) return size;
        }
        return std::nullopt;
    }

  private:
    bool isFrame(std::uint64_t position, std::uint32_t kind) {
        const auto frame = frameAt(position);
        if (!frame || (kind != 0 && frame->kind != kind)) return false;
        if (frame->size == 0) return kind == 0 && freeFormatSize(position, *frame);
        if (position + frame->size >= end_) return position + frame->size == end_;
        const auto next = frameAt(position + frame->size);
        return next && next->kind == frame->kind;
    }

    FileReader& reader_;
    Parse parse_;
    std::uint64_t end_;
};

/// Whether frames taken from all over the stream have the bit rate of the first.
bool hasOneBitRate(FileReader& reader, Stream& stream, std::uint64_t begin, std::uint64_t end,
                   const Frame& first) {
    constexpr unsigned framesAtHead = 64;
    constexpr unsigned framesAtPosition = 4;
    constexpr unsigned positions = 24;
    bool same = true;
    unsigned count = 0;
    const auto compare = [&](unsigned limit) {
        return [&, limit](const Frame& frame) {
            same = same && frame.bitRate == first.bitRate;
            return same && ++count < limit;
        };
    };
    reader.setBlock(16 * 1024);
    stream.walk(begin, first.kind, compare(framesAtHead));
    reader.setBlock(4 * 1024);
    for (unsigned i = 1; i <= positions && same; ++i) {
        const std::uint64_t position = begin + (end - begin) / (positions + 1) * i;
        const auto found = stream.find(position, position + 4 * 1024, first.kind);
        if (!found) return false;
        count = 0;
        stream.walk(*found, first.kind, compare(framesAtPosition));
    }
    return same;
}

double secondsByWalk(FileReader& reader, Stream& stream, std::uint64_t begin, const Frame& first) {
    reader.setBlock(walkBlock);
    std::uint64_t samples = 0;
    stream.walk(begin, first.kind, [&](const Frame& frame) {
        samples += frame.samples;
        return true;
    });
    return static_cast<double>(samples) / first.sampleRate;
}

} // namespace

std::optional<double> mpegDuration(FileReader& reader, std::uint64_t begin, std::uint64_t end) {
    Stream stream(reader, mpeg::parse, end);
    std::optional<std::uint64_t> found = stream.find(begin, begin + maximumJunk);
    // A single frame, cut off: no second one can vouch for it, its place after the tag does.
    if (!found && stream.frameAt(begin)) found = begin;
    if (!found) return std::nullopt;
    const auto first = stream.frameAt(*found);
    const auto told = mpeg::framesTold(reader.at(*found, 256));
    if (told && *told > 0) return static_cast<double>(*told) * first->samples / first->sampleRate;
    if (first->size == 0) {
        const auto size = stream.freeFormatSize(*found, *first);
        if (!size) return std::nullopt;
        return static_cast<double>(end - *found) / static_cast<double>(*size) * first->samples /
               first->sampleRate;
    }
    if (!hasOneBitRate(reader, stream, *found, end, *first))
        return secondsByWalk(reader, stream, *found, *first);
    return static_cast<double>(end - *found) * 8 / first->bitRate;
}

std::optional<double> adtsDuration(FileReader& reader, std::uint64_t begin, std::uint64_t end) {
    Stream stream(reader, adts::parse, end);
    const auto found = stream.find(begin, begin + maximumJunk);
    if (!found) return std::nullopt;
    return secondsByWalk(reader, stream, *found, *stream.frameAt(*found));
}

} // namespace velto::media
