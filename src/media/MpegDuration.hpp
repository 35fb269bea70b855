#pragma once

#include "media/FileReader.hpp"

#include <optional>

namespace velto::media {

/// Seconds of MPEG audio (layers 1 to 3) between two positions of a file. A Xing, Info or VBRI header in the
/// first frame gives the number of frames. Without one a file whose samples have one bit rate is measured by
/// its size, and any other by walking through all its frames. Absent if no frame is found.
[[nodiscard]] std::optional<double> mpegDuration(FileReader& reader, std::uint64_t begin, std::uint64_t end);

/// The same for raw AAC (ADTS): every frame is counted, for neither a header nor a constant bit rate exists.
[[nodiscard]] std::optional<double> adtsDuration(FileReader& reader, std::uint64_t begin, std::uint64_t end);

} // namespace velto::media
