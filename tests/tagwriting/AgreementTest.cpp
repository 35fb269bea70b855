#include "id3/ID3TagParser.hpp"
#include "id3/TagFrames.hpp"
#include "media/Id3Items.hpp"
#include "tagwriting/TagFixtures.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

namespace velto::test {

namespace {

using id3::FrameName;
using Texts = std::map<std::string, std::string>;

/// What a scan takes from the tag at the head of the file.
Texts textsOfScan(const std::filesystem::path& file) {
    media::FileReader reader(file);
    std::vector<media::MetadataItem> items;
    if (const auto tag = media::id3FramesAt(reader, 0, reader.size())) appendItems(items, *tag);
    Texts texts;
    for (const media::MetadataItem& item : items) {
        const std::string name = item.key == "TRCK" ? *item.key : item.commonKey.value_or("");
        // A date is one text to a scan, and up to three frames to the engine.
        if (item.text() != nullptr && !name.empty() && name != media::common_key::creationDate)
            texts[name] = *item.text();
    }
    return texts;
}

/// The same from what the engine reads. A number without a name is a genre as it is.
Texts textsOfEngine(const id3::ID3Tag& tag) {
    Texts texts;
    for (const auto& [name, frame] : tag.frames) {
        const auto* genre = std::get_if<id3::ID3FrameGenre>(&frame);
        const auto* text = std::get_if<id3::ID3FrameWithStringContent>(&frame);
        const auto* part = std::get_if<id3::ID3FramePartOfTotal>(&frame);
        if (name.kind == FrameName::title && text != nullptr) texts["title"] = text->content;
        if (name.kind == FrameName::artist && text != nullptr) texts["artist"] = text->content;
        if (name.kind == FrameName::album && text != nullptr) texts["albumName"] = text->content;
        if (name.kind == FrameName::trackPosition && part != nullptr) texts["TRCK"] = part->text;
        if (genre != nullptr && genre->description) texts["type"] = *genre->description;
        if (genre != nullptr && !genre->description && genre->identifier)
            texts["type"] = std::to_string(static_cast<unsigned>(*genre->identifier));
    }
    std::erase_if(texts, [](const auto& entry) { return entry.second.empty(); });
    return texts;
}

std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace

void expectSameReading(const std::string& bytes, const std::string& what) {
    const auto header = id3::tagHeader(bytesOf(bytes));
    if (header && header->hasDoubtfulSize) return; // never rewritten
    const TemporaryFolder folder;
    const Texts scan = textsOfScan(folder.write("song.mp3", bytes));
    std::optional<id3::ID3Tag> tag;
    try {
        tag = id3::parseTag(bytesOf(bytes));
    } catch (const id3::ID3TagEditorError&) { // a tag that is cut short is never rewritten
        return;
    }
    EXPECT_EQ(scan, textsOfEngine(tag.value_or(id3::ID3Tag()))) << what;
}

TEST(Agreement, aScanAndARewriteReadTheSameOfEverySeed) {
    int tags = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(FUZZ_CORPUS)) {
        if (!entry.is_regular_file()) continue;
        std::string bytes = contentOf(entry.path());
        // A seed of whole files begins with a byte that chooses the extension.
        if (entry.path().parent_path().filename() == "media_open") bytes.erase(0, 1);
        if (bytes.starts_with("ID3")) ++tags;
        expectSameReading(bytes, entry.path().string());
    }
    EXPECT_GE(tags, 20) << "the seeds are gone";
}

} // namespace velto::test
