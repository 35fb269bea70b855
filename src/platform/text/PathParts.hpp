#pragma once

#include "platform/text/Text.hpp"

#include <string>
#include <string_view>

/// Parts of a path's bytes; the file system is not asked. The views are of the path, which must outlive them.
namespace velto {

/// What follows the last slash.
[[nodiscard]] constexpr std::string_view lastPathComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// What follows the last dot of the last component, case kept; empty if there is none or if the dot only
/// hides the file (".mp3").
[[nodiscard]] constexpr std::string_view pathExtension(std::string_view path) {
    const std::string_view name = lastPathComponent(path);
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

/// The same in lower case: by which a file's kind is known.
[[nodiscard]] inline std::string lowercasedExtension(std::string_view path) {
    return text::lowercased(pathExtension(path));
}

} // namespace velto
