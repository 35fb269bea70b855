#include "media/Export.hpp"
#include "media/MediaSamples.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::media {
namespace {

using test::runMutagen;
using test::TemporaryFolder;

bool isGenre(const MetadataItem& item) {
    return item.commonKey == common_key::type;
}

std::optional<MetadataItem> genre(const std::string& text) {
    MetadataItem item;
    item.identifier = identifier::iTunesUserGenre;
    item.keySpace = key_space::iTunes;
    item.value = text;
    return item;
}

const std::string mp4Tags =
    "f = MP4(path)\nf['\\xa9nam'] = 'Night'\nf['\\xa9gen'] = ['House', 'Old']\n"
    "f['covr'] = [MP4Cover(b'x' * 70000)]\nf['trkn'] = [(3, 12)]\n"
    "f['----:com.serato.dj:markers'] = [MP4FreeForm(b'\\0\\1\\2', AtomDataType.IMPLICIT)]\n"
    "f['tmpo'] = [128]\nf.save()";
const std::string printMp4 =
    "f = MP4(path)\nprint(f['\\xa9nam'], f.get('\\xa9gen'), len(f['covr'][0]), f['trkn'],"
    " bytes(f['----:com.serato.dj:markers'][0]), f['tmpo'], end='')";
const std::string aiffTags =
    "f = AIFF(path)\nf.add_tags() if f.tags is None else None\n"
    "f.tags.add(TIT2(encoding=3, text='Night'))\nf.tags.add(TCON(encoding=3, text='House'))\n"
    "f.tags.add(PRIV(owner='me', data=b'\\0\\1'))\nf.tags.add(TSOT(encoding=3, text='N'))\n"
    "f.save(v2_version=3)";
const std::string printAiff =
    "f = AIFF(path)\nprint(f.tags['TIT2'], f.tags.get('TCON'), f.tags.getall('PRIV')[0].data,"
    " f.tags['TSOT'], f.tags.version[1], end='')";

struct Rewritten {
    const char* name;
    std::vector<std::string> options;
    std::string tags;
    std::string print;
    std::string withGenre;
    std::string cleared;
};

const Rewritten files[] = {
    {"end.m4a",
     {"-c:a", "aac"},
     mp4Tags,
     printMp4,
     "['Night'] ['Deep House - Électro'] 70000 [(3, 12)] b'\\x00\\x01\\x02' [128]",
     "['Night'] None 70000 [(3, 12)] b'\\x00\\x01\\x02' [128]"},
    // The description in front of the sound: growing it moves the sound and every chunk offset.
    {"front.mp4",
     {"-c:a", "aac", "-movflags", "faststart"},
     mp4Tags,
     printMp4,
     "['Night'] ['Deep House - Électro'] 70000 [(3, 12)] b'\\x00\\x01\\x02' [128]",
     "['Night'] None 70000 [(3, 12)] b'\\x00\\x01\\x02' [128]"},
    {"song.aiff",
     {},
     aiffTags,
     printAiff,
     "Night Deep House - Électro b'\\x00\\x01' N 3",
     "Night None b'\\x00\\x01' N 3"},
};

TEST(MediaExport, ReplacesTheGenreAndNothingElse) {
    for (const Rewritten& each : files) {
        const TemporaryFolder folder;
        const auto source = test::makeSound(folder, each.name, each.options);
        runMutagen(source, each.tags);
        const std::string before = test::readFile(source);
        const auto output = folder / (std::string("out") + source.extension().native());

        exportPassthrough(source, output, isGenre, genre("Deep House - Électro"));
        EXPECT_EQ(runMutagen(output, each.print), each.withGenre) << each.name;
        EXPECT_TRUE(sameAudio(source, output)) << each.name;
        test::runProgram(
            {"ffmpeg", "-v", "error", "-xerror", "-i", output.native(), "-map", "0:a", "-f", "null", "-"});

        const auto clear = folder / (std::string("clear") + source.extension().native());
        exportPassthrough(output, clear, isGenre, std::nullopt);
        EXPECT_EQ(runMutagen(clear, each.print), each.cleared) << each.name;
        EXPECT_TRUE(sameAudio(source, clear)) << each.name;
        EXPECT_EQ(test::readFile(source), before) << each.name;
    }
}

TEST(MediaExport, WritesIntoFilesWithoutTags) {
    const TemporaryFolder folder;
    for (const char* name : {"bare.m4a", "bare.aiff"}) {
        const auto source = test::makeSound(folder, name, {"-map_metadata", "-1", "-fflags", "+bitexact"});
        const auto output = folder / (std::string("out-") + name);
        exportPassthrough(source, output, isGenre, genre("House"));
        EXPECT_TRUE(sameAudio(source, output)) << name;
        const char* key = source.extension() == ".aiff" ? "TCON" : "\\xa9gen";
        EXPECT_NE(runMutagen(output, std::string("print(mutagen.File(path)['") + key + "'])").find("House"),
                  std::string::npos);
    }
}

TEST(MediaExport, AnAiffTagBehindAnExtendedHeaderKeepsItsFrames) {
    const TemporaryFolder folder;
    const auto source = test::makeSound(folder, "bare.aiff");
    const std::string tag =
        test::id3Tag(3, 0x40,
                     test::bytesOf(6, 4) + std::string(6, '\0') + test::textFrame("TIT2", "Night") +
                         test::textFrame("TCON", "(17)"));
    std::string bytes = test::readFile(source) + "ID3 " + test::bytesOf(tag.size(), 4) + tag;
    if (tag.size() % 2 != 0) bytes += '\0';
    bytes.replace(4, 4, test::bytesOf(bytes.size() - 8, 4));
    const auto tagged = folder.write("tagged.aiff", bytes);
    exportPassthrough(tagged, folder / "out.aiff", isGenre, genre("House"));
    EXPECT_EQ(runMutagen(folder / "out.aiff", "f = AIFF(path)\nprint(f['TIT2'], f['TCON'], end='')"),
              "Night House");
}

TEST(MediaExport, RefusesWhereAValueWouldChange) {
    const TemporaryFolder folder;
    const auto source = test::makeSound(folder, "a.m4a", {"-metadata", "title=Night"});
    const auto withTempo = [&](const char* change) {
        runMutagen(source, std::string("f = MP4(path)\nf['tmpo'] = [128]\nf['disk'] = [(1, 2)]\n") + change +
                               "\nf.save()");
        return test::readFile(source);
    };
    const std::string usual = withTempo("");
    exportPassthrough(source, folder / "out.m4a", isGenre, genre("House"));
    EXPECT_EQ(runMutagen(folder / "out.m4a", "f = MP4(path)\nprint(f['tmpo'], f['disk'], end='')"),
              "[128] [(1, 2)]");
    // The same number in four bytes instead of the usual two, room for them taken from the free space after
    // it.
    std::string bytes = usual;
    const auto tempo = bytes.find("tmpo");
    ASSERT_NE(tempo, bytes.npos);
    bytes.replace(tempo + 20, 2, std::string("\0\0\0\x80", 4));
    const auto grow = [&](std::size_t at, int by) {
        std::uint32_t size = 0;
        for (std::size_t i = 0; i < 4; ++i)
            size = size << 8U | static_cast<unsigned char>(bytes[at + i]);
        bytes.replace(at, 4, test::bytesOf(size + static_cast<std::uint32_t>(by), 4));
    };
    grow(tempo - 4, 2);
    grow(tempo + 4, 2);
    for (const char* around : {"ilst", "meta", "udta", "moov"})
        grow(bytes.find(around) - 4, 2);
    const auto odd = folder.write("odd.m4a", bytes);
    EXPECT_THAT([&] { exportPassthrough(odd, folder / "out.m4a", isGenre, genre("House")); },
                testing::ThrowsMessage<MediaError>(testing::HasSubstr("would be lost")));
}

TEST(MediaExport, RefusesATagThatItCannotRead) {
    const TemporaryFolder folder;
    const std::string sound = test::readFile(test::makeSound(folder, "bare.aiff", {"-map_metadata", "-1"}));
    std::string revision = test::id3Tag(3, 0, test::textFrame("TIT2", "Night"));
    revision[4] = '\1';
    for (const std::string& tag :
         {revision,
          test::id3Tag(3, 0, test::textFrame("TIT2", "Night") + "?!?!" + test::textFrame("TALB", "Late"))}) {
        std::string bytes =
            sound + "ID3 " + test::bytesOf(tag.size(), 4) + tag + std::string(tag.size() % 2, '\0');
        bytes.replace(4, 4, test::bytesOf(bytes.size() - 8, 4));
        const auto source = folder.write("source.aiff", bytes);
        EXPECT_THROW(exportPassthrough(source, folder / "out.aiff", isGenre, genre("House")), MediaError);
    }
}

TEST(MediaExport, AGenreOfQuickTimesOwnKindIsReplacedToo) {
    const TemporaryFolder folder;
    const auto source = test::makeSound(
        folder, "user.m4a", {"-f", "mov", "-metadata", "genre=House", "-metadata", "title=Night"});
    for (const auto& added : {genre("Techno"), std::optional<MetadataItem>()}) {
        exportPassthrough(source, folder / "out.m4a", isGenre, added);
        std::string genres;
        std::string title;
        for (const MetadataItem& item : openAsset(folder / "out.m4a").items) {
            if (isGenre(item)) genres += *item.text();
            if (item.commonKey == common_key::title) title = *item.text();
        }
        EXPECT_EQ(genres, added ? "Techno" : "");
        EXPECT_EQ(title, "Night");
        EXPECT_TRUE(sameAudio(source, folder / "out.m4a"));
    }
}

TEST(MediaExport, AnAiffTagIsReplacedWhereverItStands) {
    const TemporaryFolder folder;
    const std::string sound =
        test::readFile(test::makeSound(folder, "bare.aiff", {"-map_metadata", "-1", "-fflags", "+bitexact"}));
    const std::string tag = test::id3Tag(3, 0, test::textFrame("TIT2", "Nights")); // of an odd size
    const std::string chunk = "ID3 " + test::bytesOf(tag.size(), 4) + tag;
    ASSERT_EQ(chunk.size() % 2, 1U);

    const struct {
        const char* what;
        std::string content;
        const char* title;
    } cases[] = {
        {"in front", sound.substr(0, 12) + chunk + '\0' + sound.substr(12), "Nights"},
        {"at the end, not filled up", sound + chunk, "Nights"},
        {"nowhere, behind a chunk that is not filled up", sound + "ANNO" + test::bytesOf(3, 4) + "abc", ""},
    };

    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        std::string bytes = each.content;
        bytes.replace(4, 4, test::bytesOf(bytes.size() - 8, 4));
        const auto source = folder.write("source.aiff", bytes);
        const auto output = folder / "output.aiff";
        exportPassthrough(source, output, isGenre, genre("Deep House"));
        EXPECT_TRUE(sameAudio(source, output));
        EXPECT_EQ(runMutagen(output, "f = AIFF(path)\nprint(f.get('TIT2', ''), f['TCON'], sep='|', end='')"),
                  std::string(each.title) + "|Deep House");
        const std::string written = test::readFile(output);
        EXPECT_EQ(written.substr(4, 4), test::bytesOf(written.size() - 8, 4));
        EXPECT_EQ(written.find("abc") != written.npos, bytes.find("abc") != bytes.npos);
    }
}

TEST(MediaExport, RefusesBeforeAnythingIsMade) {
    const TemporaryFolder folder;
    const auto raw = test::makeSound(folder, "raw.aac", {"-f", "adts"});
    const auto wave = test::makeSound(folder, "a.wav");
    auto cut = test::makeSound(folder, "cut.aiff");
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 100);
    const std::pair<std::filesystem::path, MediaError::Case> cases[] = {
        {raw, MediaError::Case::unsupportedContainer},
        {wave, MediaError::Case::unsupportedContainer},
        {cut, MediaError::Case::damaged},
        {folder / "missing.m4a", MediaError::Case::cannotOpen},
    };
    for (const auto& [source, kind] : cases) {
        try {
            exportPassthrough(source, folder / "out", isGenre, genre("House"));
            ADD_FAILURE() << source;
        } catch (const MediaError& error) {
            EXPECT_EQ(error.kind(), kind) << error.what();
        }
        EXPECT_FALSE(std::filesystem::exists(folder / "out")) << source;
    }
}

TEST(SameAudio, SeesOneChangedByteAndOneWrongOffset) {
    const TemporaryFolder folder;
    const auto change = [&](const std::filesystem::path& source, std::size_t position) {
        std::string bytes = test::readFile(source);
        bytes.at(position) = static_cast<char>(bytes.at(position) + 1);
        return folder.write("changed" + source.extension().native(), bytes);
    };
    const auto m4a = test::makeSound(folder, "a.m4a");
    const std::string bytes = test::readFile(m4a);
    EXPECT_TRUE(sameAudio(m4a, m4a));
    EXPECT_FALSE(sameAudio(m4a, change(m4a, bytes.find("mdat") + 2000)));
    EXPECT_FALSE(sameAudio(m4a, change(m4a, bytes.find("stco") + 15)));
    EXPECT_FALSE(sameAudio(m4a, change(m4a, bytes.find("stsz") + 23)));
    const auto aiff = test::makeSound(folder, "a.aiff");
    EXPECT_FALSE(sameAudio(aiff, change(aiff, 5000)));
    EXPECT_FALSE(sameAudio(m4a, aiff));
    std::filesystem::resize_file(m4a, bytes.size() / 2);
    EXPECT_THROW((void)sameAudio(m4a, m4a), MediaError);
}

} // namespace
} // namespace velto::media
