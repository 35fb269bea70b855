#include "media/QuickTimeItems.hpp"

#include "media/TagItems.hpp"
#include "platform/text/EncodedText.hpp"

#include <algorithm>

namespace velto::media {

namespace {

/// Of all texts of a file together, and of its list of keys.
constexpr std::size_t maximumTotal = 1024 * 1024;
constexpr std::uint64_t nameInAtom = 4;

/// The text of a "data" atom; absent if it holds something else.
std::optional<std::string> dataText(std::string_view content) {
    constexpr std::size_t header = 16;
    constexpr std::uint32_t utf8Text = 1;
    constexpr std::uint32_t utf16Text = 2;
    if (content.size() < header || content.substr(4, 4) != "data") return std::nullopt;
    const std::string_view text =
        content.substr(header, std::max<std::size_t>(bigEndian32(content), header) - header);
    const std::uint32_t type = bigEndian32(content, 8);
    if (type == utf8Text) return text::toUtf8(text, text::Encoding::utf8);
    if (type == utf16Text) return text::toUtf8(text, text::Encoding::utf16BigEndian);
    return std::nullopt;
}

/// The first text of a user data entry: a 16-bit size, a language, the text. Some writers put a "data" atom
/// there instead.
std::string userDataText(std::string_view content) {
    if (auto text = dataText(content)) return *std::move(text);
    constexpr std::size_t header = 4;
    if (content.size() < header) return {};
    return text::toUtf8OrLatin1(content.substr(header, static_cast<std::size_t>(bigEndian(content, 0, 2))));
}

/// The keys of a "keys" atom in order; each entry is its size, a namespace and the key.
std::vector<std::string> keysOf(std::string_view content) {
    constexpr std::size_t header = 8;
    std::vector<std::string> keys;
    content.remove_prefix(std::min(header, content.size()));
    while (content.size() > header) {
        const std::size_t size = bigEndian32(content);
        if (size < header || size > content.size()) break;
        keys.push_back(text::toUtf8OrLatin1(content.substr(header, size - header)));
        content.remove_prefix(size);
    }
    return keys;
}

class Reading {
  public:
    Reading(FileReader& reader, const AtomTree& tree)
        : reader_(reader)
        , tree_(tree) {}

    std::vector<QuickTimeItem> run() {
        for (const Atom& atom : tree_.atoms)
            if (atom.parent >= 0) look(atom, tree_.atoms[static_cast<std::size_t>(atom.parent)]);
        return std::move(items_);
    }

  private:
    void look(const Atom& atom, const Atom& parent) {
        const std::uint32_t firstCharacter = atom.name >> 24;
        if (firstCharacter == 0xA9 && tree_.isAt(parent, {"moov", "udta"})) {
            const std::string key(reader_.at(atom.offset + nameInAtom + 1, 3));
            append(itemOfUserData("©" + text::toUtf8OrLatin1(key), userDataText(take(atom))), atom);
        } else if (atom.name == atomName("keys") && isMetadata(parent)) {
            keys_ = keysOf(take(atom));
            keysParent_ = atom.parent;
        } else if (parent.name == atomName("ilst") && parent.parent == keysParent_ && atom.name > 0 &&
                   atom.name <= keys_.size()) {
            append(itemOfQuickTimeKey(keys_[atom.name - 1], dataText(take(atom))), atom);
        }
    }

    [[nodiscard]] bool isMetadata(const Atom& atom) const {
        return tree_.isAt(atom, {"moov", "meta"}) || tree_.isAt(atom, {"moov", "udta", "meta"});
    }

    void append(MetadataItem item, const Atom& atom) {
        if (item.text() != nullptr && item.text()->empty()) return;
        items_.push_back({std::move(item), atom.offset + nameInAtom});
    }

    /// The atom's content; empty once the file has given more text than any real one.
    std::string take(const Atom& atom) {
        if (total_ >= maximumTotal) return {};
        const std::uint64_t size = std::min<std::uint64_t>(atom.end - atom.content, maximumTextSize);
        total_ += static_cast<std::size_t>(size);
        return reader_.copy(atom.content, static_cast<std::size_t>(size));
    }

    FileReader& reader_;
    const AtomTree& tree_;
    std::vector<QuickTimeItem> items_;
    std::vector<std::string> keys_; ///< of the metadata atom that was seen last; entries count from 1
    int keysParent_ = -1;           ///< index of that atom; an "ilst" comes after the keys
    std::size_t total_ = 0;
};

} // namespace

std::vector<QuickTimeItem> quickTimeItems(FileReader& reader, const AtomTree& tree) {
    return Reading(reader, tree).run();
}

} // namespace velto::media
