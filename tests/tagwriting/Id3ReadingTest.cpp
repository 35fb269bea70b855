#include "id3/ID3Genre.hpp"
#include "id3/ID3TagParser.hpp"
#include "tagwriting/TagFixtures.hpp"
#include "tagwriting/mp3/ID3TagEditor.hpp"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <optional>

using namespace velto;
using namespace velto::id3;
using namespace velto::test;

namespace {

const std::string jpeg = raw("\xFF\xD8\xFF\xE0\x00\x10JFIF\xFF\x00\xFF\x00picture");

std::string unsynchronised(const std::string& text) {
    std::string out;
    for (const char c : text) {
        out += c;
        if (c == '\xFF') out += '\0';
    }
    return out;
}

/// The text that a tag holds, whatever the kind of frame.
std::string shown(const ID3Tag& tag, FrameName::Kind name) {
    const auto found = name == FrameName::picture
                           ? tag.frames.find(FrameName::attachedPicture(ID3PictureType::frontCover))
                           : tag.frames.find(name);
    if (found == tag.frames.end()) return "(none)";
    if (const auto* text = std::get_if<ID3FrameWithStringContent>(&found->second)) return text->content;
    if (const auto* genre = std::get_if<ID3FrameGenre>(&found->second))
        return genre->description.value_or("(no text)");
    if (const auto* part = std::get_if<ID3FramePartOfTotal>(&found->second))
        return std::to_string(part->position) + " of " + std::to_string(part->total.value_or(-1));
    if (const auto* picture = std::get_if<ID3FrameAttachedPicture>(&found->second))
        return {picture->picture.begin(), picture->picture.end()};
    return "(other)";
}

struct Row {
    const char* what;
    std::string data;
    FrameName::Kind name;
    std::string expected;
};

std::string title(int version, const std::string& content) {
    return tagOf(version, frameOf(version, version == 2 ? "TT2" : "TIT2", content));
}

} // namespace

TEST(Id3Reading, texts) {
    const std::vector<Row> rows{
        {"ISO-8859-1", title(3, raw("\0Caf\xE9")), FrameName::title, "Café"},
        {"UTF-16 little-endian", title(3, raw("\x01\xFF\xFEH\0i\0\0\0")), FrameName::title, "Hi"},
        {"surrogate pair", title(3, raw("\x01\xFF\xFE\x3C\xD8\xA7\xDF")), FrameName::title, "🎧"},
        {"UTF-8", title(4, raw("\x03\xC3\xA9")), FrameName::title, "é"},
        {"unknown encoding, 2.4", title(4, raw("\x09\xC3\xA9")), FrameName::title, "é"},
        {"mark on the first value only", title(4, raw("\x01\xFE\xFF\0A\0\0\0B")), FrameName::title, "A/B"},
        {"terminators as padding", title(3, raw("\0One\0\0\0\0")), FrameName::title, "One"},
        {"position",
         tagOf(3, frameOf(3, "TRCK",
                          raw("\0"
                              "03/12"))),
         FrameName::trackPosition, "3 of 12"},
        {"position alone",
         tagOf(3, frameOf(3, "TPOS",
                          raw("\0"
                              "2"))),
         FrameName::discPosition, "2 of -1"},
    };
    for (const Row& row : rows) {
        const auto tag = parseTag(bytesOf(row.data));
        ASSERT_TRUE(tag) << row.what;
        EXPECT_EQ(shown(*tag, row.name), row.expected) << row.what;
        expectSameReading(row.data, row.what);
    }
}

TEST(Id3Reading, layoutsAsFoundInTheWild) {
    const std::string hit = frameOf(3, "TIT2", raw("\0Hit"));
    const std::string hit4 = frameOf(4, "TIT2", raw("\0Hit"));
    const std::string picture = raw("\0image/jpeg\0\x03\0") + jpeg;
    std::string plainSizes = frameOf(3, "APIC", picture + std::string(300 - picture.size(), 'z')) + hit;
    const std::vector<Row> rows{
        {"padding", tagOf(3, hit + std::string(200, '\0')), FrameName::title, "Hit"},
        {"zero-length frame", tagOf(3, frameOf(3, "TALB", "") + hit), FrameName::title, "Hit"},
        {"unknown frame", tagOf(3, frameOf(3, "XYZ9", "?") + hit), FrameName::title, "Hit"},
        {"frame larger than the tag", tagOf(3, hit + raw("TALB\0\0\x7F\0\0\0\0x")), FrameName::title, "Hit"},
        {"extended header, 2.3", tagOf(3, raw("\0\0\0\x06\0\0\0\0\0\0") + hit, 0x40), FrameName::title,
         "Hit"},
        {"with checksum", tagOf(3, raw("\0\0\0\x0A\x80\0\0\0\0\0zzzz") + hit, 0x40), FrameName::title, "Hit"},
        {"extended header, 2.4", tagOf(4, raw("\0\0\0\x06\x01\0") + hit4, 0x40), FrameName::title, "Hit"},
        {"flagged but not there", tagOf(3, hit, 0x40), FrameName::title, "Hit"},
        {"extended header too large", tagOf(3, raw("\x7F\0\0\0\0\0"), 0x40), FrameName::title, "(none)"},
        {"data length indicator", tagOf(4, frameOf(4, "TIT2", synchsafe(4) + raw("\0Hit"), raw("\0\x01"))),
         FrameName::title, "Hit"},
        {"grouped", tagOf(4, frameOf(4, "TIT2", raw("g\0Hit"), raw("\0\x40"))), FrameName::title, "Hit"},
        {"compressed, 2.3",
         tagOf(3, frameOf(3, "TIT2", raw("\0\0\0\x04g") + compressed(raw("\0Hit")), raw("\0\xA0"))),
         FrameName::title, "Hit"},
        {"compressed, 2.4",
         tagOf(4, frameOf(4, "APIC", "g" + synchsafe(picture.size()) + unsynchronised(compressed(picture)),
                          raw("\0\x4B"))),
         FrameName::picture, jpeg},
        {"plain sizes in 2.4", tagOf(4, plainSizes), FrameName::title, "Hit"},
        {"synchsafe sizes in 2.3", tagOf(3, frameOf(4, "TALB", raw("\0") + std::string(299, 'x')) + hit),
         FrameName::title, "Hit"},
        {"tag-wide unsynchronisation", tagOf(3, unsynchronised(frameOf(3, "APIC", picture)), 0x80),
         FrameName::picture, jpeg},
        {"unsynchronised frame", tagOf(4, frameOf(4, "APIC", unsynchronised(picture), raw("\0\x02"))),
         FrameName::picture, jpeg},
        {"all frames unsynchronised", tagOf(4, frameOf(4, "APIC", unsynchronised(picture)), 0x80),
         FrameName::picture, jpeg},
        {"picture of 2.2", tagOf(2, frameOf(2, "PIC", raw("\0JPG\x03\0") + jpeg)), FrameName::picture, jpeg},
        {"UTF-16 description",
         tagOf(3, frameOf(3, "APIC",
                          raw("\x01image/jpeg\0\x03\xFF\xFE"
                              "c\0\0\0") +
                              jpeg)),
         FrameName::picture, jpeg},
        {"UTF-16 description, one zero", tagOf(3, frameOf(3, "APIC", raw("\x01image/jpeg\0\x03\0") + jpeg)),
         FrameName::picture, jpeg},
    };
    for (const Row& row : rows) {
        const auto tag = parseTag(bytesOf(row.data));
        ASSERT_TRUE(tag) << row.what;
        EXPECT_EQ(shown(*tag, row.name), row.expected) << row.what;
        expectSameReading(row.data, row.what);
    }
}

TEST(Id3Reading, whatCannotBeHadIsNoted) {
    const std::string packed = compressed(raw("\0Hit"));
    for (const auto& [what, data] : std::vector<std::pair<const char*, std::string>>{
             {"encrypted, 2.3", tagOf(3, frameOf(3, "TIT2", raw("k\0Hit"), raw("\0\x40")))},
             {"encrypted, 2.4", tagOf(4, frameOf(4, "TIT2", raw("k\0Hit"), raw("\0\x04")))},
             {"no zlib", tagOf(3, frameOf(3, "TIT2", raw("\0\0\0\x04zzzz"), raw("\0\x80")))},
             {"cut short", tagOf(3, frameOf(3, "TIT2", raw("\0\0"), raw("\0\x80")))},
             {"more than it says", tagOf(3, frameOf(3, "TIT2", raw("\0\0\0\x03") + packed, raw("\0\x80")))},
             {"less than it says", tagOf(3, frameOf(3, "TIT2", raw("\0\0\0\x05") + packed, raw("\0\x80")))},
             {"far too much", tagOf(3, frameOf(3, "TIT2", raw("\x7F\0\0\0") + packed, raw("\0\x80")))},
             {"compressed tag of 2.2", tagOf(2, frameOf(2, "TT2", raw("\0Hit")), 0x40)}}) {
        const auto tag = parseTag(bytesOf(data));
        EXPECT_EQ(shown(*tag, FrameName::title), "(none)") << what;
        EXPECT_TRUE(tag->unreadable.contains(FrameName::title)) << what;
        expectSameReading(data, what);
    }
}

TEST(Id3Reading, genres) {
    const std::vector<Row> rows{
        {"free text", raw("\0Deep House"), FrameName::genre, "Deep House"},
        {"number", raw("\0(35)"), FrameName::genre, "House"},
        {"refined number", raw("\0(4)Eurodisco"), FrameName::genre, "Eurodisco"},
        {"several numbers", raw("\0(51)(39)"), FrameName::genre, "Techno-Industrial - Noise"},
        {"keyword", raw("\0(35)(RX)"), FrameName::genre, "House - Remix"},
        {"escaped parenthesis", raw("\0((I am) text"), FrameName::genre, "(I am) text"},
        {"parenthesis that is no number", raw("\0(Live) Set"), FrameName::genre, "(Live) Set"},
        {"bare numbers and values",
         raw("\0"
             "17\0Psybient\0"
             "17"),
         FrameName::genre, "Rock - Psybient"},
        {"number beyond the list",
         raw("\0"
             "1990"),
         FrameName::genre, "1990"},
        {"number without a name", raw("\0(255)"), FrameName::genre, "(no text)"},
        {"empty", raw("\0\0"), FrameName::genre, ""},
    };
    for (const Row& row : rows) {
        const std::string data = tagOf(4, frameOf(4, "TCON", row.data));
        EXPECT_EQ(shown(*parseTag(bytesOf(data)), row.name), row.expected) << row.what;
        expectSameReading(data, row.what);
    }
}

TEST(Id3Reading, picturesAndCommentsCoexist) {
    const auto tag = parseTag(bytesOf(tagOf(3, frameOf(3, "APIC", raw("\0image/png\0\x04\0back")) +
                                                   frameOf(3, "APIC", raw("\0image/webp\0\x03\0front")) +
                                                   frameOf(3, "COMM", raw("\0eng\0Hello")) +
                                                   frameOf(3, "COMM", raw("\0deuWas\0Hallo")) +
                                                   frameOf(3, "USLT",
                                                           raw("\x01"
                                                               "eng\xFF\xFE\0\0\xFF\xFEL\0")))));
    const ID3TagContentReader reader(*tag);
    EXPECT_EQ(reader.attachedPicture(ID3PictureType::backCover)->format, ID3PictureFormat::png);
    EXPECT_EQ(reader.attachedPicture(ID3PictureType::frontCover)->mimeType, "image/webp");
    EXPECT_EQ(tag->frame<ID3FrameWithLocalizedContent>(FrameName::comment("eng"))->content, "Hello");
    EXPECT_EQ(tag->frame<ID3FrameWithLocalizedContent>(FrameName::comment("deu"))->contentDescription, "Was");
    EXPECT_EQ(tag->frame<ID3FrameWithLocalizedContent>(FrameName::unsynchronizedLyrics("eng"))->content, "L");
}

TEST(Id3Reading, filesWithAndWithoutATag) {
    const TemporaryFolder folder;
    const std::string hit = title(3, raw("\0Hit"));

    struct FileRow {
        const char* name;
        std::string content;
        std::optional<std::string> title; ///< nothing: no tag
    };

    for (const FileRow& row :
         std::vector<FileRow>{{"upper.MP3", hit + "audio", "Hit"},
                              {"empty.mp3", "", std::nullopt},
                              {"short.mp3", raw("ID3\x03\0"), std::nullopt},
                              {"audio.mp3", "\xFF\xFB" + std::string(50, 'a'), std::nullopt},
                              {"version5.mp3", title(5, raw("\0Hit")), std::nullopt},
                              {"revision.mp3", raw("ID3\x03\x01\0\0\0\0\0"), std::nullopt},
                              {"zero.mp3", tagOf(3, ""), "(none)"}}) {
        const auto tag = ID3TagEditor::read(folder.write(row.name, row.content));
        ASSERT_EQ(tag.has_value(), row.title.has_value()) << row.name;
        if (tag) {
            EXPECT_EQ(shown(*tag, FrameName::title), *row.title) << row.name;
        }
    }
    try {
        (void)ID3TagEditor::read(folder.write("song.flac", hit));
        FAIL();
    } catch (const ID3TagEditorError& error) {
        EXPECT_EQ(error.kind(), ID3TagEditorError::Case::invalidFileFormat);
    }
    EXPECT_THROW((void)ID3TagEditor::read(folder / "absent.mp3"), SystemError);
}

TEST(Id3Reading, declaredSizeBeyondTheFileCostsNothing) {
    const TemporaryFolder folder;
    const auto file = folder.write("liar.mp3", raw("ID3\x03\0\0\x7F\x7F\x7F\x7F") + std::string(100, 'x'));

    struct ::rusage before {};

    struct ::rusage after {};

    getrusage(RUSAGE_SELF, &before);
    try {
        (void)ID3TagEditor::read(file);
        FAIL();
    } catch (const ID3TagEditorError& error) {
        EXPECT_EQ(error.kind(), ID3TagEditorError::Case::corruptedFile);
    }
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 << 10); // KiB; the tag says 256 MiB
}

TEST(Id3Reading, whatOthersWrote) {
    const TemporaryFolder folder;
    const auto file = makeSound(folder, "ffmpeg.mp3",
                                {"-metadata", "title=Füße 🎧", "-metadata", "genre=House", "-metadata",
                                 "track=4/9", "-id3v2_version", "3"});
    const auto byFfmpeg = ID3TagEditor::read(file);
    EXPECT_EQ(shown(*byFfmpeg, FrameName::title), "Füße 🎧");
    EXPECT_EQ(shown(*byFfmpeg, FrameName::trackPosition), "4 of 9");
    EXPECT_EQ(byFfmpeg->properties.version, ID3Version::version3);
}
