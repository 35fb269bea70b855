#pragma once

#include <string_view>

namespace velto {

/// The part behind the last slash.
[[nodiscard]] constexpr std::string_view lastPathComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// The part behind the last dot of the last component, case kept; empty where there is none or where the dot
/// only hides the file (".mp3").
[[nodiscard]] constexpr std::string_view pathExtension(std::string_view path) {
    const std::string_view name = lastPathComponent(path);
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

} // namespace velto
