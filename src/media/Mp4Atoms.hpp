#pragma once

#include "media/FileReader.hpp"

#include <initializer_list>
#include <vector>

namespace velto::media {

struct Atom {
    std::uint32_t name;    ///< its four bytes, big-endian
    int parent;            ///< index of the atom around it; -1 at the top
    std::uint64_t offset;  ///< of its header
    std::uint64_t content; ///< of what follows the header
    std::uint64_t end;
};

[[nodiscard]] constexpr std::uint32_t atomName(std::string_view four) {
    std::uint32_t value = 0;
    for (const char c : four)
        value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

/// The atoms of an MP4 file, parents before their children.
struct AtomTree {
    std::vector<Atom> atoms;
    bool consistent = true; ///< every atom lies within the one around it, the last one within the file

    /// Whether `atom` lies at exactly this path of names.
    [[nodiscard]] bool isAt(const Atom& atom, std::initializer_list<std::string_view> path) const;
    /// Index of the first atom at the path, or -1.
    [[nodiscard]] int find(std::initializer_list<std::string_view> path) const;
};

/// All atoms down to the items of the tag list. Throws MediaError if they nest deeper than any real file
/// or are more than memory should be spent on: TagLib, which follows them by recursion, may then have the
/// file.
[[nodiscard]] AtomTree atomsOf(FileReader& reader);

} // namespace velto::media
