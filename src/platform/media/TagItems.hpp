#pragma once

#include "platform/media/Asset.hpp"

#include <tstring.h>

#include <vector>

namespace TagLib {
namespace APE {
class Tag;
}

namespace ID3v1 {
class Tag;
}

namespace ID3v2 {
class Frame;
class Tag;
} // namespace ID3v2

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

/// Whether the tag of a second kind in one file may tell the genre. It may not where a preferred tag exists:
/// a genre that was taken out of that one would come back from here.
enum class Genre { included, leftOut };

void appendItems(std::vector<MetadataItem>& items, const TagLib::ID3v2::Tag& tag);
/// A text frame of an ID3v2 tag by its name in version 2.4, with its only value.
void appendId3Text(std::vector<MetadataItem>& items, std::string_view key, std::string text);
/// An entry of an MP4 tag list with its only text, and its track number.
void appendAtomText(std::vector<MetadataItem>& items, std::string_view key, std::string text);
void appendTrackNumber(std::vector<MetadataItem>& items, std::int64_t number);
void appendItems(std::vector<MetadataItem>& items, const TagLib::ID3v1::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::APE::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::Ogg::XiphComment& tag);
void appendItems(std::vector<MetadataItem>& items, const TagLib::RIFF::Info::Tag& tag, Genre genre);
void appendItems(std::vector<MetadataItem>& items, const TagLib::MP4::Tag& tag);

[[nodiscard]] MetadataItem itemOfFrame(const TagLib::ID3v2::Frame& frame);
[[nodiscard]] MetadataItem itemOfAtom(const TagLib::String& name, const TagLib::MP4::Item& atom);

/// A text of an AIFF's own chunks ("NAME", "AUTH"): UTF-8 where it is, else Latin-1.
void appendAiffText(std::vector<MetadataItem>& items, std::string_view chunk, std::string_view bytes);

/// Always valid UTF-8: what cannot be encoded becomes U+FFFD, NUL characters are dropped.
[[nodiscard]] std::string utf8(const TagLib::String& text);

/// What is no character becomes U+FFFD.
void appendUtf8(std::string& text, char32_t character);

} // namespace velto::media
