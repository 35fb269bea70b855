#pragma once

#include "platform/media/FileReader.hpp"

#include <vector>

namespace velto::media {

struct Chunk {
    std::string name;
    std::uint64_t offset; ///< of its content
    std::uint64_t size;   ///< of its content, never beyond the file's end
    bool isCut;           ///< it claims more than the file holds
};

enum class ByteOrder { big, little };

/// The chunks of a RIFF (little-endian) or IFF (big-endian) file in their order. A chunk that claims more
/// than the file holds, as recorders leave behind that were switched off, reaches to the file's end.
[[nodiscard]] std::vector<Chunk> chunksOf(FileReader& reader, ByteOrder order);

} // namespace velto::media
