#pragma once

#include "media/Asset.hpp"
#include "platform/core/GenreSeparator.hpp"

#include <unordered_set>
#include <vector>

namespace TagLib {
class String;

namespace APE {
class Tag;
}

namespace ID3v1 {
class Tag;
}

namespace MP4 {
class Item;
class Tag;
} // namespace MP4

namespace Ogg {
class XiphComment;
}

namespace RIFF::Info {
class Tag;
}
} // namespace TagLib

/// TagLib's dictionaries in the words of MetadataItem. Items with an empty text are left out; several values
/// of one field are one item: genres joined by " - ", other texts by ", ".
namespace velto::media {

/// More is not a name, title or genre: an item's text is cut there, in bytes.
inline constexpr std::size_t maximumTextSize = 64 * 1024;

enum class Meaning { artist, title, album, genre, date, track };

/// An item without its value.
[[nodiscard]] MetadataItem makeItem(std::string_view keySpace, std::string_view key,
                                    std::optional<Meaning> meaning);

void setText(MetadataItem& item, std::string text);

/// Collects the values of one field in order, each once, and joins them.
class DistinctTexts {
  public:
    explicit DistinctTexts(std::string_view separator)
        : separator_(separator) {}

    /// Does nothing with an empty text, and once the joined text has maximumTextSize.
    void add(std::string text);

    [[nodiscard]] bool isFull() const { return text_.size() >= maximumTextSize; }

    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    std::string_view separator_;
    std::unordered_set<std::string> seen_;
    std::string text_;
};

/// Whether the tag of a second kind in one file may say the genre. It may not if a preferred tag exists:
/// a genre that was taken out of that one would come back from here.
enum class Genre { included, leftOut };

/// An entry of an MP4 tag list with its only text, and its track number.
void appendAtomText(std::vector<MetadataItem>& items, std::string_view key, std::string text);
void appendTrackNumber(std::vector<MetadataItem>& items, std::int64_t number);
void appendItems(std::vector<MetadataItem>& items, const TagLib::ID3v1::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::APE::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::Ogg::XiphComment& tag);
void appendItems(std::vector<MetadataItem>& items, const TagLib::RIFF::Info::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::MP4::Tag& tag);

[[nodiscard]] MetadataItem itemOfAtom(const TagLib::String& name, const TagLib::MP4::Item& atom);

/// An entry of QuickTime's user data ("©gen"), and one of its metadata; without a text its value is bytes.
[[nodiscard]] MetadataItem itemOfUserData(std::string_view key, std::string text);
[[nodiscard]] MetadataItem itemOfQuickTimeKey(std::string_view key, std::optional<std::string> text);

/// A text of an AIFF's own chunks ("NAME", "AUTH"): UTF-8 if it is, else Latin-1.
void appendAiffText(std::vector<MetadataItem>& items, std::string_view chunk, std::string_view bytes);

/// Always valid UTF-8: what cannot be encoded becomes U+FFFD, NUL characters are dropped.
[[nodiscard]] std::string utf8(const TagLib::String& text);

} // namespace velto::media
