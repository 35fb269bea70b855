#include "media/Mp4Atoms.hpp"

#include <algorithm>
#include <array>

namespace velto::media {

namespace {

constexpr int maximumDepth = 16;
constexpr std::size_t maximumAtoms = 100'000;
constexpr std::array containers{atomName("moov"), atomName("udta"), atomName("mdia"), atomName("meta"),
                                atomName("ilst"), atomName("stbl"), atomName("minf"), atomName("moof"),
                                atomName("traf"), atomName("trak"), atomName("stsd")};

class Walk {
  public:
    explicit Walk(FileReader& reader)
        : reader_(reader) {}

    AtomTree run() {
        children(-1, 0, reader_.size(), 0);
        return std::move(tree_);
    }

  private:
    void children(int parent, std::uint64_t position, std::uint64_t end, int depth) {
        if (depth > maximumDepth) reader_.fail(MediaError::Case::damaged, "its atoms nest too deep");
        while (position + 8 <= end) {
            if (!append(parent, position, end)) {
                tree_.consistent = false;
                return;
            }
            const Atom atom = tree_.atoms.back();
            if (std::find(containers.begin(), containers.end(), atom.name) != containers.end())
                children(static_cast<int>(tree_.atoms.size()) - 1, firstChild(atom), atom.end, depth + 1);
            position = atom.end;
        }
    }

    bool append(int parent, std::uint64_t position, std::uint64_t end) {
        if (tree_.atoms.size() >= maximumAtoms)
            reader_.fail(MediaError::Case::damaged, "it has too many atoms");
        const std::string_view header = reader_.at(position, 16);
        std::uint64_t size = bigEndian32(header);
        std::uint64_t headerSize = 8;
        const std::uint32_t name = bigEndian32(header, 4);
        if (size == 1) {
            size = bigEndian(header, 8, 8);
            headerSize = 16;
        } else if (size == 0) {
            size = reader_.size() - position; // the last one reaches to the file's end
        }
        if (size < headerSize || size > reader_.size() - position) return false;
        if (position + size > end) tree_.consistent = false;
        tree_.atoms.push_back({name, parent, position, position + headerSize, position + size});
        return true;
    }

    /// "meta" has four bytes of version in front of its children, unless QuickTime wrote it.
    std::uint64_t firstChild(const Atom& atom) {
        if (atom.name == atomName("stsd")) return atom.content + 8;
        if (atom.name != atomName("meta")) return atom.content;
        const std::string_view next = reader_.at(atom.content, 8);
        const std::string_view name = next.size() == 8 ? next.substr(4) : std::string_view();
        const bool plain =
            name == "hdlr" || name == "ilst" || name == "mhdr" || name == "ctry" || name == "lang";
        return plain ? atom.content : atom.content + 4;
    }

    FileReader& reader_;
    AtomTree tree_;
};

} // namespace

bool AtomTree::isAt(const Atom& atom, std::initializer_list<std::string_view> path) const {
    const Atom* current = &atom;
    for (auto name = std::rbegin(path); name != std::rend(path); ++name) {
        if (current == nullptr || current->name != atomName(*name)) return false;
        current = current->parent < 0 ? nullptr : &atoms[static_cast<std::size_t>(current->parent)];
    }
    return current == nullptr;
}

int AtomTree::find(std::initializer_list<std::string_view> path) const {
    const auto found =
        std::find_if(atoms.begin(), atoms.end(), [&](const Atom& atom) { return isAt(atom, path); });
    return found == atoms.end() ? -1 : static_cast<int>(found - atoms.begin());
}

AtomTree atomsOf(FileReader& reader) {
    return Walk(reader).run();
}

} // namespace velto::media
