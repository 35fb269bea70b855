#pragma once

#include "media/Asset.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace velto::media {

/// A regular file read by position through a window that moves, so that many small looks at it cost few
/// system calls; its head, to which every format comes back, has a window of its own. One thread at a
/// time. Throws MediaError if it cannot be opened or read.
class FileReader {
  public:
    /// The most that one view can span, in bytes.
    static constexpr std::size_t maximumView = 64 * 1024;

    /// `path` outlives the reader.
    explicit FileReader(const std::filesystem::path& path);
    ~FileReader();
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// Stays the reader's.
    [[nodiscard]] int descriptor() const { return descriptor_; }

    [[nodiscard]] std::uint64_t size() const { return size_; }

    /// Up to `length` bytes (at most maximumView) from `offset`, fewer only at the file's end. Valid until
    /// the next call.
    [[nodiscard]] std::string_view at(std::uint64_t offset, std::size_t length) {
        if (moving_.holds(offset, length)) return moving_.view(offset, length);
        if (head_.holds(offset, length)) return head_.view(offset, length);
        return load(offset, length);
    }

    /// A copy of up to `length` bytes, without maximumView's limit.
    [[nodiscard]] std::string copy(std::uint64_t offset, std::size_t length);

    /// How many bytes a read takes at least: small for single looks, large for walking through a file.
    void setBlock(std::size_t bytes) { block_ = bytes; }

    [[noreturn]] void fail(MediaError::Case kind, std::string_view detail) const;

  private:
    static constexpr std::size_t headSize = 8 * 1024;

    struct Window {
        [[nodiscard]] bool holds(std::uint64_t offset, std::size_t length) const {
            return offset >= start && offset - start + length <= filled;
        }

        /// Up to `length` of what it holds from there.
        [[nodiscard]] std::string_view view(std::uint64_t offset, std::size_t length) const {
            return std::string_view(bytes, filled).substr(static_cast<std::size_t>(offset - start), length);
        }

        char* bytes = nullptr;
        std::uint64_t start = 0;
        std::size_t filled = 0;
    };

    std::string_view load(std::uint64_t offset, std::size_t length);
    /// Reads on until `needed` bytes are there or the file ends, up to `wanted` at once.
    void fill(Window& window, std::uint64_t start, std::size_t needed, std::size_t wanted);

    const std::filesystem::path& path_;
    int descriptor_;
    std::uint64_t size_ = 0;
    std::size_t block_ = 8 * 1024;
    std::unique_ptr<char[]> buffer_; ///< the moving window's bytes, then the head's
    Window moving_;
    Window head_;
};

/// Numbers as the containers store them; bytes that are not there count as 0.
[[nodiscard]] inline std::uint64_t bigEndian(std::string_view bytes, std::size_t position,
                                             std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value =
            value << 8 | (position + i < bytes.size() ? static_cast<unsigned char>(bytes[position + i]) : 0U);
    return value;
}

[[nodiscard]] inline std::uint32_t bigEndian32(std::string_view bytes, std::size_t position = 0) {
    return static_cast<std::uint32_t>(bigEndian(bytes, position, 4));
}

} // namespace velto::media
