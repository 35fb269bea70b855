#pragma once

#include "id3/ID3Types.hpp"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <utility>

namespace velto::id3 {

/// An open regular file; closed with its owner. Every operation throws SystemError with the path in its text.
/// The size is looked at once and followed from then on: nobody else changes the file meanwhile, or reads and
/// comparisons come out short.
class FileBytes {
  public:
    enum class Mode { read, readWrite, createNew };

    /// createNew is for reading and writing, fails if the name is taken and gives mode 0600.
    FileBytes(const std::filesystem::path& path, Mode mode);
    ~FileBytes();

    FileBytes(FileBytes&& other) noexcept
        : path_(std::move(other.path_))
        , descriptor_(std::exchange(other.descriptor_, -1))
        , size_(other.size_)
        , blockSize_(other.blockSize_) {}

    FileBytes& operator=(FileBytes&&) = delete;

    [[nodiscard]] off_t size() const { return size_; }

    [[nodiscard]] int descriptor() const { return descriptor_; }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// Reads until the buffer is full or the file ends; how many bytes came.
    std::size_t read(std::span<std::uint8_t> into, off_t at) const;
    void write(ByteView bytes, off_t at);
    void truncate(off_t length);
    void sync() const;

    /// Puts zero bytes in front of the content without copying it. False if the file system cannot, or not
    /// by that length; the content is then as it was.
    [[nodiscard]] bool insertInFront(off_t length);

    /// Takes bytes away from the front, likewise, in one step that a power cut does or leaves. False if
    /// the file system cannot, or not by that length.
    [[nodiscard]] bool removeFromFront(off_t length);

    /// Unit of insertInFront and removeFromFront.
    [[nodiscard]] off_t blockSize() const { return blockSize_; }

    /// Moves everything from `from` on to `to` and sets the file's end after it.
    void shiftTail(off_t from, off_t to);
    /// Makes this empty file a copy of `source`'s content, shared or copied by the kernel if it can.
    void copyContent(const FileBytes& source);

  private:
    void lookAtSize();
    [[noreturn]] void fail(const char* operation) const;

    std::filesystem::path path_;
    int descriptor_;
    off_t size_ = 0;
    off_t blockSize_ = 1;
};

/// Whether two files hold the same bytes: as far as the second goes, or from the given places to their ends.
[[nodiscard]] bool beginsWith(const FileBytes& file, const FileBytes& beginning);
[[nodiscard]] bool sameBytes(const FileBytes& left, off_t leftFrom, const FileBytes& right, off_t rightFrom);

} // namespace velto::id3
