#include "platform/files/CopyContent.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <vector>

namespace velto::files {

namespace {

constexpr std::uint64_t kernelStep = std::uint64_t{1} << 30;
constexpr std::uint64_t bufferSize = std::uint64_t{256} << 10;

bool isOfTheDisk(int errorNumber) {
    return errorNumber == ENOSPC || errorNumber == EDQUOT || errorNumber == EFBIG;
}

} // namespace

bool copyContent(int from, int to) {
    return ::ioctl(to, FICLONE, from) == 0 ||
           appendBytes(from, 0, std::numeric_limits<std::uint64_t>::max(), to);
}

bool appendBytes(int from, std::uint64_t offset, std::uint64_t length, int to) {
    auto in = static_cast<loff_t>(offset);
    while (length > 0) {
        const ssize_t copied = ::copy_file_range(from, &in, to, nullptr,
                                                 static_cast<std::size_t>(std::min(length, kernelStep)), 0);
        if (copied < 0 && errno == EINTR) continue;
        if (copied < 0 && isOfTheDisk(errno)) return false;
        if (copied <= 0) break; // at the end, or not between these two
        length -= static_cast<std::uint64_t>(copied);
    }
    std::vector<char> buffer(length == 0 ? 0 : bufferSize);
    while (length > 0) {
        const ssize_t got =
            ::pread(from, buffer.data(), static_cast<std::size_t>(std::min(length, bufferSize)), in);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got == 0;
        if (!writeFully(to, buffer.data(), static_cast<std::uint64_t>(got))) return false;
        in += got;
        length -= static_cast<std::uint64_t>(got);
    }
    return true;
}

bool writeFully(int to, const char* bytes, std::uint64_t count) {
    while (count > 0) {
        const ssize_t written = ::write(to, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes += written;
        count -= static_cast<std::uint64_t>(written);
    }
    return true;
}

} // namespace velto::files
