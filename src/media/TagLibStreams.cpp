#include "media/TagLibStreams.hpp"

#include <algorithm>

namespace velto::media {

namespace {

/// No tag item that is worth reading is larger.
constexpr long maximumRead = 4 * 1024 * 1024;
constexpr unsigned long maximumFileRead = 16 * 1024;

TagLib::ByteVector toByteVector(std::string_view bytes) {
    return {bytes.data(), static_cast<unsigned int>(bytes.size())};
}

} // namespace

void ReadOnlyStream::seek(long offset, Position from) {
    const long base = from == Beginning ? 0 : from == Current ? position_ : length();
    long target = 0;
    if (__builtin_add_overflow(base, offset, &target)) target = length();
    position_ = std::max(0L, target);
}

void ViewStream::append(std::string_view bytes) {
    if (bytes.empty()) return;
    segments_.push_back({length_, static_cast<long>(bytes.size()), literals_.size()});
    literals_ += bytes;
    length_ += static_cast<long>(bytes.size());
}

void ViewStream::appendHole(std::uint64_t length) {
    if (length == 0) return;
    segments_.push_back({length_, static_cast<long>(length), hole});
    length_ += static_cast<long>(length);
}

TagLib::ByteVector ViewStream::readBlock(unsigned long length) {
    const long wanted = static_cast<long>(std::min<unsigned long>(length, maximumRead));
    const long end = std::min(position_ + wanted, length_);
    if (end <= position_) return {};
    TagLib::ByteVector bytes(static_cast<unsigned int>(end - position_), '\0');
    for (const Segment& segment : segments_) {
        const long from = std::max(segment.start, position_);
        const long to = std::min(segment.start + segment.length, end);
        if (segment.literal == hole || from >= to) continue;
        std::copy_n(literals_.data() + segment.literal + (from - segment.start), to - from,
                    bytes.data() + (from - position_));
    }
    position_ = end;
    return bytes;
}

TagLib::ByteVector FileViewStream::readBlock(unsigned long length) {
    const auto bytes =
        reader_.at(static_cast<std::uint64_t>(position_), std::min<unsigned long>(length, maximumFileRead));
    position_ += static_cast<long>(bytes.size());
    return toByteVector(bytes);
}

} // namespace velto::media
