#include "tagwriting/mp3/FileBytes.hpp"

#include "platform/files/CopyContent.hpp"

#include <fcntl.h>
#include <linux/falloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace velto::id3 {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} << 10;

int flagsFor(FileBytes::Mode mode) {
    // O_NONBLOCK: a pipe by that name must not hold us up; it means nothing to a regular file.
    switch (mode) {
    case FileBytes::Mode::read:
        return O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    case FileBytes::Mode::readWrite:
        return O_RDWR | O_CLOEXEC | O_NONBLOCK;
    case FileBytes::Mode::createNew:
        return O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    }
    return O_RDONLY;
}

} // namespace

FileBytes::FileBytes(const std::filesystem::path& path, Mode mode)
    : path_(path)
    , descriptor_(::open(path.c_str(), flagsFor(mode), 0600)) {
    if (descriptor_ < 0) fail("Cannot open");
    struct ::stat info {};
    if (::fstat(descriptor_, &info) == 0 && S_ISREG(info.st_mode)) {
        size_ = info.st_size;
        blockSize_ = std::max<off_t>(info.st_blksize, 1);
        return;
    }
    ::close(std::exchange(descriptor_, -1));
    throw SystemError(S_ISDIR(info.st_mode) ? EISDIR : EINVAL, "Not a regular file", path.string());
}

FileBytes::~FileBytes() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void FileBytes::fail(const char* operation) const {
    throw SystemError(errno, operation, path_.string());
}

void FileBytes::lookAtSize() {
    struct ::stat info {};

    if (::fstat(descriptor_, &info) != 0) fail("Cannot look at");
    size_ = info.st_size;
}

std::size_t FileBytes::read(std::span<std::uint8_t> into, off_t at) const {
    std::size_t done = 0;
    while (done < into.size()) {
        const ssize_t count =
            ::pread(descriptor_, into.data() + done, into.size() - done, at + static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("Cannot read");
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void FileBytes::write(ByteView bytes, off_t at) {
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(descriptor_, bytes.data(), bytes.size(), at);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("Cannot write");
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        at += count;
        size_ = std::max(size_, at);
    }
}

void FileBytes::truncate(off_t length) {
    if (::ftruncate(descriptor_, length) != 0) fail("Cannot set the length of");
    size_ = length;
}

void FileBytes::sync() const {
    if (::fsync(descriptor_) != 0) fail("Cannot sync");
}

bool FileBytes::insertInFront(off_t length) {
    if (::fallocate(descriptor_, FALLOC_FL_INSERT_RANGE, 0, length) != 0) return false;
    size_ += length;
    (void)::posix_fadvise(descriptor_, 0, 0,
                          POSIX_FADV_WILLNEED); // its pages are gone; a writer reads again
    return true;
}

bool FileBytes::removeFromFront(off_t length) {
    if (::fallocate(descriptor_, FALLOC_FL_COLLAPSE_RANGE, 0, length) != 0) return false;
    size_ -= length;
    return true;
}

void FileBytes::shiftTail(off_t from, off_t to) {
    const off_t length = size() - from;
    if (length <= 0 || from == to) return truncate(to + std::max<off_t>(length, 0));
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(std::min<off_t>(bufferSize, length)));
    for (off_t done = 0; done < length;) {
        const off_t step = std::min(length - done, static_cast<off_t>(buffer.size()));
        // Backwards when the tail moves back, so that no byte is overwritten before it has been read.
        const off_t at = to > from ? length - done - step : done;
        const std::span<std::uint8_t> chunk(buffer.data(), static_cast<std::size_t>(step));
        if (read(chunk, from + at) != chunk.size()) {
            errno = EIO;
            fail("Cannot read");
        }
        write(chunk, to + at);
        done += step;
    }
    truncate(to + length);
}

void FileBytes::copyContent(const FileBytes& source) {
    if (!files::copyContent(source.descriptor_, descriptor_)) fail("Cannot write");
    lookAtSize();
}

static bool sameRange(const FileBytes& left, off_t leftFrom, const FileBytes& right, off_t rightFrom,
                      off_t length) {
    std::vector<std::uint8_t> leftBuffer(static_cast<std::size_t>(std::min<off_t>(bufferSize, length)));
    std::vector<std::uint8_t> rightBuffer(leftBuffer.size());
    for (off_t done = 0; done < length;) {
        const auto step =
            static_cast<std::size_t>(std::min(length - done, static_cast<off_t>(leftBuffer.size())));
        const std::span<std::uint8_t> leftChunk(leftBuffer.data(), step);
        const std::span<std::uint8_t> rightChunk(rightBuffer.data(), step);
        if (left.read(leftChunk, leftFrom + done) != step || right.read(rightChunk, rightFrom + done) != step)
            return false;
        if (!std::equal(leftChunk.begin(), leftChunk.end(), rightChunk.begin())) return false;
        done += static_cast<off_t>(step);
    }
    return true;
}

bool sameBytes(const FileBytes& left, off_t leftFrom, const FileBytes& right, off_t rightFrom) {
    const off_t length = left.size() - leftFrom;
    return length >= 0 && length == right.size() - rightFrom &&
           sameRange(left, leftFrom, right, rightFrom, length);
}

bool beginsWith(const FileBytes& file, const FileBytes& beginning) {
    return beginning.size() <= file.size() && sameRange(file, 0, beginning, 0, beginning.size());
}

} // namespace velto::id3
