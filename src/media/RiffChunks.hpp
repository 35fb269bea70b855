#pragma once

#include "media/FileReader.hpp"

#include <vector>

namespace velto::media {

struct Chunk {
    std::string name;
    std::uint64_t offset; ///< of its content
    std::uint64_t size;   ///< of its content, never beyond the file's end
    std::uint64_t end;    ///< where the next one begins: after the byte that fills up an odd size
    bool isCut;           ///< it claims more than the file holds

    [[nodiscard]] bool isId3() const { return name == "ID3 " || name == "id3 "; }
};

/// Of one file; what lies after them is not looked at.
constexpr std::size_t maximumChunks = 4096;

enum class ByteOrder { big, little };

/// The chunks of a RIFF (little-endian) or IFF (big-endian) file in their order. A chunk that claims more
/// than the file holds, as left by recorders that were switched off, reaches to the file's end.
[[nodiscard]] std::vector<Chunk> chunksOf(FileReader& reader, ByteOrder order);

} // namespace velto::media
