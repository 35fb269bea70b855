#include "id3/ID3TagBuilder.hpp"
#include "id3/ID3TagCreator.hpp"
#include "id3/ID3TagParser.hpp"
#include "id3/TagFrames.hpp"
#include "tagwriting/TagFixtures.hpp"
#include "tagwriting/mp3/ID3TagEditor.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <functional>

using namespace velto;
using namespace velto::id3;
using namespace velto::test;

namespace {

ID3Tag genreTag(const std::string& genre) {
    return ID32v3TagBuilder().genre({std::nullopt, genre}).build();
}

ID3TagEditorError::Case refusal(const std::function<void()>& action) {
    try {
        action();
    } catch (const ID3TagEditorError& error) {
        return error.kind();
    }
    throw std::logic_error("it was accepted");
}

} // namespace

TEST(Id3Writing, bytesOfATag) {
    EXPECT_EQ(tagBytes(genreTag("Dub")), bytesOf(raw("ID3\x03\0\0\0\0\0\x0FTCON\0\0\0\x05\0\0\0Dub\0")));
    EXPECT_EQ(tagBytes(genreTag("é")),
              bytesOf(raw("ID3\x03\0\0\0\0\0\x11TCON\0\0\0\x07\0\0\x01\xFF\xFE\xE9\0\0\0")));
    EXPECT_EQ(tagBytes(ID32v4TagBuilder().title({"é"}).build()),
              bytesOf(raw("ID3\x04\0\0\0\0\0\x0ETIT2\0\0\0\x04\0\0\x03\xC3\xA9\0")));
    EXPECT_EQ(tagBytes(ID32v2TagBuilder().trackPosition({3, 12}).build()),
              bytesOf(raw("ID3\x02\0\0\0\0\0\x0CTRK\0\0\x06\0"
                          "3/12\0")));
    // A text that came in ISO-8859-1 goes back as it was.
    EXPECT_EQ(tagBytes(ID32v3TagBuilder().title({"é", ID3StringEncoding::ISO88591}).build()),
              bytesOf(raw("ID3\x03\0\0\0\0\0\x0DTIT2\0\0\0\x03\0\0\0\xE9\0")));
}

TEST(Id3Writing, refusals) {
    constexpr std::size_t limit = std::size_t{1} << 28;
    EXPECT_EQ(tagHeaderBytes(ID3Version::version3, limit - 1), bytesOf(raw("ID3\x03\0\0\x7F\x7F\x7F\x7F")));
    EXPECT_EQ(refusal([] { (void)tagHeaderBytes(ID3Version::version3, limit); }),
              ID3TagEditorError::Case::tagTooBig);
    EXPECT_EQ(refusal([] { (void)tagBytes(genreTag(std::string(limit - 22, 'g'))); }),
              ID3TagEditorError::Case::tagTooBig); // exactly the limit, its header included
    EXPECT_EQ(refusal([] {
                  ID3FrameAttachedPicture picture;
                  picture.picture.resize(std::size_t{1} << 24);
                  (void)tagBytes(ID32v2TagBuilder().attachedPicture(picture).build());
              }),
              ID3TagEditorError::Case::tagTooBig);
    ID3Tag wrongKind = genreTag("Dub");
    wrongKind.frames.insert_or_assign(FrameName::title, ID3FrameGenre{});
    EXPECT_EQ(refusal([&] { (void)tagBytes(wrongKind); }), ID3TagEditorError::Case::invalidTagData);
    ID3Tag wrongVersion{{ID3Version::version4, 0},
                        {{FrameName::recordingYear, ID3FrameWithIntegerContent{1990}}}};
    EXPECT_EQ(refusal([&] { (void)tagBytes(wrongVersion); }), ID3TagEditorError::Case::invalidTagData);
}

TEST(Id3Writing, everyFrameSurvivesInItsVersion) {
    const ID3FrameWithLocalizedContent words{"eng", "Ü", "näh"};
    const auto common = [&](auto builder) {
        builder.title({"T"})
            .album({"Ал"})
            .albumArtist({"AA"})
            .artist({"Ar/tist"})
            .composer({"C"})
            .conductor({"Co"});
        builder.contentGrouping({"G"}).copyright({"©"}).encodedBy({"E"}).encoderSettings({"S"}).lyricist(
            {"L"});
        builder.mixArtist({"M"}).publisher({"P"}).subtitle({"Su"}).beatsPerMinute({128}).originalFilename(
            {"o"});
        builder.lengthInMilliseconds({1000}).genre({ID3Genre{35}, "House"}).discPosition({1, 2, "1/2"});
        builder.trackPosition({0, std::nullopt, "A1"}).initialKey({"8A"}).iTunesGrouping({"iG"});
        builder.iTunesMovementName({"mn"}).iTunesMovementIndex({1}).iTunesMovementCount({2});
        builder.iTunesPodcastCategory({"pc"}).iTunesPodcastDescription({"pd"}).iTunesPodcastID({"id"});
        builder.iTunesPodcastKeywords({"kw"}).unsynchronizedLyrics(words).comment(words);
        builder.attachedPicture({{1, 2, 3}, ID3PictureFormat::png, ID3PictureType::backCover});
        return builder;
    };
    const auto before4 = [](auto builder) {
        builder.recordingYear({1999}).recordingDayMonth({31, 12}).recordingHourMinute({7, 5}).sizeInBytes(
            {9});
        return builder.build();
    };
    const std::vector<ID3Tag> tags{
        before4(common(ID32v2TagBuilder())), before4(common(ID32v3TagBuilder().fileOwner({"me"}))),
        common(ID32v4TagBuilder().fileOwner({"me"})).recordingDateTime({1999, 12, 31, 7, 5}).build()};
    for (const ID3Tag& tag : tags) {
        const auto again = parseTag(tagBytes(tag));
        ASSERT_TRUE(again);
        EXPECT_EQ(again->frames.size(), tag.frames.size());
        for (const auto& [name, frame] : tag.frames)
            EXPECT_TRUE(again->frames.contains(name) && again->frames.at(name) == frame)
                << static_cast<int>(name.kind) << " in version " << static_cast<int>(tag.properties.version);
    }
}

TEST(Id3Writing, audioStaysWhateverTheTagWas) {
    const TemporaryFolder folder;
    std::string audio = "\xFF\xFB";
    for (int index = 0; index < 700'000; ++index)
        audio += static_cast<char>(index * 7 ^ index >> 8);
    const std::string end = "TAG" + std::string(125, 'i'); // ID3v1
    const std::string frame = frameOf(4, "TIT2", raw("\0x"));

    struct Row {
        const char* what;
        std::string head;
        std::string rest;
    };

    for (const Row& row : std::vector<Row>{
             {"no tag", "", audio + end},
             {"nothing at all", "", ""},
             {"empty tag", tagOf(3, ""), audio + end},
             {"room for it", tagOf(3, std::string(600, '\0')), audio + end},
             {"room to the byte", tagOf(3, std::string(15, '\0')), audio},
             {"one byte short", tagOf(3, std::string(14, '\0')), audio},
             {"far too much room", tagOf(3, std::string(300'000, '\0')), audio + end},
             {"footer", tagOf(4, frame, 0x10) + "3DI" + raw("\x04\0\x10") + synchsafe(frame.size()), audio},
             {"flag without a footer", tagOf(4, frame, 0x10), audio},
             {"two tags", tagOf(3, ""), tagOf(3, frameOf(3, "TIT2", raw("\0second"))) + audio},
             {"tag and no audio", tagOf(4, frame), ""}}) {
        const auto file = folder.write("song.mp3", row.head + row.rest);
        struct ::stat before {};
        struct ::stat after {};

        ASSERT_EQ(::stat(file.c_str(), &before), 0);
        ID3TagEditor::write(genreTag("Dub"), file);
        EXPECT_TRUE(audioOf(file) == row.rest) << row.what;
        const auto tag = ID3TagEditor::read(file);
        ASSERT_TRUE(tag) << row.what;
        EXPECT_EQ(tag->frames, genreTag("Dub").frames) << row.what;
        ASSERT_EQ(::stat(file.c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino) << row.what;
        EXPECT_LT(after.st_size - static_cast<off_t>(row.rest.size()), 132 << 10) << row.what;
        // A file that had to grow has room for what comes next.
        const bool grew = after.st_size > before.st_size;
        ID3TagEditor::write(genreTag("Dub - House - Techno - 1990s"), file);
        ASSERT_EQ(::stat(file.c_str(), &before), 0);
        EXPECT_TRUE(!grew || before.st_size == after.st_size) << row.what;
        EXPECT_TRUE(audioOf(file) == row.rest) << row.what;
    }
}

TEST(Id3Writing, secondPathLeavesTheFirstAlone) {
    const TemporaryFolder folder;
    const auto file = folder.write("a.mp3", "audio");
    ID3TagEditor::write(genreTag("Dub"), file, folder.write("b.mp3", "something else that stood here"));
    EXPECT_EQ(readFile(file), "audio");
    EXPECT_EQ(audioOf(folder / "b.mp3"), "audio");
}

TEST(Id3Writing, othersReadIt) {
    const TemporaryFolder folder;
    const auto file = makeSound(folder, "song.mp3", {"-metadata", "title=gone"});
    const std::string audio = audioOf(file);
    const ID3FrameAttachedPicture cover{{0xFF, 0xD8, 0xFF, 0, 0xFF, 0xE0}, ID3PictureFormat::jpeg};
    ID3TagEditor::write(ID32v3TagBuilder()
                            .title({"Füße 🎧"})
                            .artist({"Artist"})
                            .trackPosition({3, 12})
                            .attachedPicture(cover)
                            .genre({std::nullopt, "Deep House - Größe - 1990s"})
                            .build(),
                        file);
    EXPECT_TRUE(audioOf(file) == audio);
    EXPECT_EQ(
        mutagen("t=MP3(path)\nprint(t['TIT2'],t['TPE1'],t['TRCK'],t['TCON'].genres,t['APIC:'].data.hex(),"
                "t.tags.version,t.info.length>0.9,sep='|')",
                file),
        "Füße 🎧|Artist|3/12|['Deep House - Größe - 1990s']|ffd8ff00ffe0|(2, 3, 0)|True\n");
    EXPECT_EQ(runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags=title,genre", "-of",
                          "default=nk=1:nw=1", file.string()}),
              "Füße 🎧\nDeep House - Größe - 1990s\n");
}
