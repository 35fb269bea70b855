#pragma once

#include "media/FileReader.hpp"

#include <tiostream.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto::media {

/// A read-only stream for TagLib; writing through it does nothing.
class ReadOnlyStream : public TagLib::IOStream {
  public:
    [[nodiscard]] TagLib::FileName name() const override { return ""; }

    void writeBlock(const TagLib::ByteVector&) override {}

    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}

    void removeBlock(unsigned long, unsigned long) override {}

    [[nodiscard]] bool readOnly() const override { return true; }

    [[nodiscard]] bool isOpen() const override { return true; }

    void seek(long offset, Position from) override;

    [[nodiscard]] long tell() const override { return position_; }

    void truncate(long) override {}

  protected:
    long position_ = 0;
};

/// What TagLib needs of a file and no more, in the file's own format: made by the code that walked the file
/// with an eye on every size in it. Pictures are left out, sound is a hole that reads as zeros. So a parse
/// costs neither system calls nor memory in proportion to what a file holds or claims to hold.
class ViewStream final : public ReadOnlyStream {
  public:
    void append(std::string_view bytes);
    void appendHole(std::uint64_t length);

    TagLib::ByteVector readBlock(unsigned long length) override;

    long length() override { return length_; }

  private:
    struct Segment {
        long start;
        long length;
        std::size_t literal; ///< where its bytes begin in literals_; `hole` for none
    };

    static constexpr std::size_t hole = static_cast<std::size_t>(-1);

    std::string literals_;
    std::vector<Segment> segments_;
    long length_ = 0;
};

/// A whole file. One read gives at most 16 KiB, as if the file ended there: texts fit,
/// and of a picture no more than that is copied.
class FileViewStream final : public ReadOnlyStream {
  public:
    explicit FileViewStream(FileReader& reader)
        : reader_(reader) {}

    TagLib::ByteVector readBlock(unsigned long length) override;

    long length() override { return static_cast<long>(reader_.size()); }

  private:
    FileReader& reader_;
};

} // namespace velto::media
