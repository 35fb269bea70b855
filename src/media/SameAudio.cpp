#include "media/Export.hpp"
#include "media/FileReader.hpp"
#include "media/Mp4Atoms.hpp"
#include "media/RiffChunks.hpp"

#include <algorithm>
#include <optional>
#include <vector>

namespace velto::media {

namespace {

struct Range {
    std::uint64_t begin;
    std::uint64_t end;
};

std::uint64_t total(const std::vector<Range>& ranges) {
    std::uint64_t sum = 0;
    for (const Range& range : ranges)
        sum += range.end - range.begin;
    return sum;
}

/// Gives the bytes of several ranges as one sequence.
class Sequence {
  public:
    Sequence(FileReader& reader, std::vector<Range> ranges)
        : reader_(reader)
        , ranges_(std::move(ranges)) {}

    /// Up to `length` bytes, fewer at the end of a range; empty at the end of all, or if the file ends
    /// short of it.
    std::string_view next(std::size_t length) {
        while (index_ < ranges_.size() && ranges_[index_].begin == ranges_[index_].end)
            ++index_;
        if (index_ == ranges_.size()) return {};
        Range& range = ranges_[index_];
        const auto bytes = reader_.at(
            range.begin, static_cast<std::size_t>(std::min<std::uint64_t>(length, range.end - range.begin)));
        range.begin += bytes.size();
        return bytes;
    }

    [[nodiscard]] bool isAtEnd() const { return index_ == ranges_.size(); }

  private:
    FileReader& reader_;
    std::vector<Range> ranges_;
    std::size_t index_ = 0;
};

bool sameBytes(FileReader& left, const std::vector<Range>& leftRanges, FileReader& right,
               const std::vector<Range>& rightRanges) {
    if (total(leftRanges) != total(rightRanges)) return false;
    Sequence leftBytes(left, leftRanges);
    Sequence rightBytes(right, rightRanges);
    while (true) {
        std::string_view wanted = leftBytes.next(FileReader::maximumView);
        if (wanted.empty()) return leftBytes.isAtEnd();
        while (!wanted.empty()) {
            const std::string_view got = rightBytes.next(wanted.size());
            if (got.empty() || wanted.substr(0, got.size()) != got) return false;
            wanted.remove_prefix(got.size());
        }
    }
}

/// Where an MP4 keeps its sound and where the chunk tables say it is.
class Mp4Sound {
  public:
    explicit Mp4Sound(FileReader& reader)
        : reader_(reader)
        , tree_(atomsOf(reader)) {
        if (!tree_.consistent || tree_.find({"moov"}) < 0) fail();
        for (const Atom& atom : tree_.atoms)
            if (tree_.isAt(atom, {"mdat"})) {
                before_.push_back(before_.empty() ? 0
                                                  : before_.back() + data_.back().end - data_.back().begin);
                data_.push_back({atom.content, atom.end});
            }
    }

    [[nodiscard]] FileReader& reader() const { return reader_; }

    [[nodiscard]] const std::vector<Range>& data() const { return data_; }

    /// The sample tables but for the chunk offsets, whose values move with the sound, and fragments.
    [[nodiscard]] std::vector<Range> descriptions() const {
        std::vector<Range> ranges;
        for (const Atom& atom : tree_.atoms) {
            const bool table = atom.parent >= 0 && isSampleTable(atom.parent) && !isOffsets(atom);
            const bool run = atom.name == atomName("trun");
            if (table || run) ranges.push_back({atom.offset, atom.end});
        }
        return ranges;
    }

    [[nodiscard]] std::vector<Atom> offsetTables() const {
        std::vector<Atom> tables;
        std::copy_if(tree_.atoms.begin(), tree_.atoms.end(), std::back_inserter(tables),
                     [&](const Atom& atom) {
                         return atom.parent >= 0 && isSampleTable(atom.parent) && isOffsets(atom);
                     });
        return tables;
    }

    /// How far into all media data together the table's entry `index` points.
    [[nodiscard]] std::uint64_t target(const Atom& table, std::uint64_t index) const {
        const std::size_t width = table.name == atomName("co64") ? 8 : 4;
        const std::uint64_t entry = table.content + 8 + index * width;
        const std::uint64_t offset = bigEndian(reader_.at(entry, width), 0, width);
        // The last media data that begins at or before it.
        const auto behind =
            std::upper_bound(data_.begin(), data_.end(), offset,
                             [](std::uint64_t o, const Range& range) { return o < range.begin; });
        if (behind == data_.begin() || offset > std::prev(behind)->end) fail();
        const auto holder = static_cast<std::size_t>(std::prev(behind) - data_.begin());
        return before_[holder] + (offset - data_[holder].begin);
    }

    [[nodiscard]] std::uint64_t count(const Atom& table) const {
        const std::uint64_t width = table.name == atomName("co64") ? 8 : 4;
        const std::uint64_t told = bigEndian32(reader_.at(table.content + 4, 4));
        if (table.content + 8 + told * width > table.end) fail();
        return told;
    }

  private:
    [[nodiscard]] bool isSampleTable(int index) const {
        return tree_.isAt(tree_.atoms[static_cast<std::size_t>(index)],
                          {"moov", "trak", "mdia", "minf", "stbl"});
    }

    static bool isOffsets(const Atom& atom) {
        return atom.name == atomName("stco") || atom.name == atomName("co64");
    }

    [[noreturn]] void fail() const {
        reader_.fail(MediaError::Case::damaged, "its description does not fit its media data");
    }

    FileReader& reader_;
    AtomTree tree_;
    std::vector<Range> data_;
    std::vector<std::uint64_t> before_; ///< bytes in all media data in front of each of data_
};

bool sameOffsets(const Mp4Sound& left, const Mp4Sound& right) {
    const auto leftTables = left.offsetTables();
    const auto rightTables = right.offsetTables();
    if (leftTables.size() != rightTables.size()) return false;
    for (std::size_t i = 0; i < leftTables.size(); ++i) {
        const std::uint64_t count = left.count(leftTables[i]);
        if (count != right.count(rightTables[i])) return false;
        for (std::uint64_t entry = 0; entry < count; ++entry)
            if (left.target(leftTables[i], entry) != right.target(rightTables[i], entry)) return false;
    }
    return true;
}

bool sameMp4(FileReader& leftFile, FileReader& rightFile) {
    const Mp4Sound left(leftFile);
    const Mp4Sound right(rightFile);
    return sameOffsets(left, right) &&
           sameBytes(left.reader(), left.descriptions(), right.reader(), right.descriptions()) &&
           sameBytes(left.reader(), left.data(), right.reader(), right.data());
}

std::vector<Range> aiffSound(FileReader& reader) {
    std::vector<Range> ranges;
    for (const Chunk& chunk : chunksOf(reader, ByteOrder::big)) {
        if (chunk.name != "COMM" && chunk.name != "SSND") continue;
        if (chunk.isCut) reader.fail(MediaError::Case::damaged, "its sound is cut off");
        ranges.push_back({chunk.offset, chunk.offset + chunk.size});
    }
    if (ranges.size() < 2) reader.fail(MediaError::Case::damaged, "no sound data");
    return ranges;
}

bool isAiff(FileReader& reader) {
    return reader.at(0, 4) == "FORM";
}

} // namespace

bool sameAudio(const std::filesystem::path& left, const std::filesystem::path& right) {
    FileReader leftFile(left);
    FileReader rightFile(right);
    if (isAiff(leftFile) != isAiff(rightFile)) return false;
    if (!isAiff(leftFile)) return sameMp4(leftFile, rightFile);
    return sameBytes(leftFile, aiffSound(leftFile), rightFile, aiffSound(rightFile));
}

} // namespace velto::media
