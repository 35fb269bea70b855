#include "media/FileReader.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace velto::media {

namespace {

/// The buffer of the reader that was here last: to allocate and release one for each of many files would have
/// the allocator tidy its whole heap every time.
thread_local std::unique_ptr<char[]> spareBuffer;

} // namespace

// Not blocking, so that a named pipe among the music cannot hold a scan.
FileReader::FileReader(const std::filesystem::path& path)
    : path_(path)
    , descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor_ < 0) fail(MediaError::Case::cannotOpen, std::generic_category().message(errno));
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor_);
        fail(MediaError::Case::cannotOpen, "not a regular file");
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    buffer_ = std::move(spareBuffer);
    if (!buffer_) buffer_.reset(new char[maximumView + headSize]);
    moving_.bytes = buffer_.get();
    head_.bytes = buffer_.get() + maximumView;
}

FileReader::~FileReader() {
    spareBuffer = std::move(buffer_);
    ::close(descriptor_);
}

void FileReader::fail(MediaError::Case kind, std::string_view detail) const {
    throw MediaError(kind, path_, detail);
}

std::string_view FileReader::load(std::uint64_t offset, std::size_t length) {
    length = std::min(length, maximumView);
    if (offset >= size_) return {};
    if (offset + length <= headSize) {
        if (head_.filled == 0)
            fill(head_, 0, static_cast<std::size_t>(std::min<std::uint64_t>(size_, headSize)), headSize);
        if (head_.filled > offset) return head_.view(offset, length);
    }
    // Starting a little earlier keeps a walk that looks ahead and comes back from reading everything twice.
    const auto margin =
        static_cast<std::size_t>(std::min<std::uint64_t>({block_ / 16, offset, maximumView - length}));
    const std::size_t needed = margin + length;
    fill(moving_, offset - margin, needed, std::min(std::max(needed, block_), maximumView));
    if (moving_.filled <= margin) return {};
    return moving_.view(offset, length);
}

void FileReader::fill(Window& window, std::uint64_t start, std::size_t needed, std::size_t wanted) {
    window.start = start;
    window.filled = 0;
    while (window.filled < needed) {
        const ssize_t got = ::pread(descriptor_, window.bytes + window.filled, wanted - window.filled,
                                    static_cast<off_t>(start + window.filled));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(MediaError::Case::damaged, std::generic_category().message(errno));
        if (got == 0) break;
        window.filled += static_cast<std::size_t>(got);
    }
}

std::string FileReader::copy(std::uint64_t offset, std::size_t length) {
    std::string bytes;
    bytes.reserve(
        static_cast<std::size_t>(std::min<std::uint64_t>(length, offset < size_ ? size_ - offset : 0)));
    while (bytes.size() < length) {
        const std::string_view piece =
            at(offset + bytes.size(), std::min(length - bytes.size(), maximumView));
        if (piece.empty()) break;
        bytes += piece;
    }
    return bytes;
}

} // namespace velto::media
