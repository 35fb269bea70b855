#include "media/Asset.hpp"
#include "media/MediaSamples.hpp"
#include "media/ReadAhead.hpp"
#include "platform/text/Text.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <iterator>

namespace velto::media {
namespace {

using test::id3Tag;
using test::TemporaryFolder;
using test::textFrame;

const std::string sound = test::repeated(test::mpegFrame(9, 417), 40);

std::string last(const Asset& asset, std::string_view commonKey) {
    std::string value = "(none)";
    for (const MetadataItem& item : asset.items)
        if (item.commonKey == commonKey && item.text() != nullptr) value = *item.text();
    return value;
}

TEST(MediaAsset, ReadsId3AsItIsFoundInTheWild) {
    const std::string frames = textFrame("TIT2", "Night") + textFrame("TCON", "House");
    const std::string noCrc = test::bytesOf(6, 4) + std::string(6, '\0');
    const std::string withCrc = test::bytesOf(10, 4) + std::string("\x80\0\0\0\0\0\1\2\3\4", 10);
    const std::string extended4 = test::bytesOf(6, 4, 7) + std::string("\1\0", 2);
    const std::string frames4 = textFrame("TIT2", "Night", 4) + textFrame("TCON", "House", 4);
    const std::string frames2 = textFrame("TT2", "Night", 2) + textFrame("TCO", "House", 2);
    const std::string stuffed = textFrame("TIT2", "Ni\xFFght") + textFrame("TCON", "House");
    std::string unsynchronised = stuffed;
    unsynchronised.insert(unsynchronised.find('\xFF') + 1, 1, '\0');
    const std::string longComment(300, 'c');
    const std::string encrypted = "TCON" + test::bytesOf(3, 4) + std::string("\0\x40\7xx", 5);
    const std::string picture = "APIC" + test::bytesOf(500'000, 4) + std::string(500'002, 'p');

    const struct {
        const char* name;
        std::string tag;
        std::string title;
        std::string genre;
    } cases[] = {
        {"2.3", id3Tag(3, 0, frames), "Night", "House"},
        {"2.3 extended", id3Tag(3, 0x40, noCrc + frames), "Night", "House"},
        {"2.3 extended with checksum", id3Tag(3, 0x40, withCrc + frames), "Night", "House"},
        {"2.3 unsynchronised", id3Tag(3, 0x80, unsynchronised), "Niÿght", "House"},
        {"2.3 unsynchronised and extended", id3Tag(3, 0xC0, noCrc + unsynchronised), "Niÿght", "House"},
        {"2.4 extended", id3Tag(4, 0x40, extended4 + frames4), "Night", "House"},
        {"2.2", id3Tag(2, 0, frames2), "Night", "House"},
        {"2.4 with plain sizes", id3Tag(4, 0, textFrame("TPE2", longComment, 4, true) + frames4), "Night",
         "House"},
        {"behind a large picture", id3Tag(3, 0, picture + frames), "Night", "House"},
        {"an empty tag in front", id3Tag(3, 0, std::string(40, '\0')) + id3Tag(3, 0, frames), "Night",
         "(none)"},
        {"a tag in front of another", id3Tag(4, 0, textFrame("TCON", "Techno", 4)) + id3Tag(3, 0, frames),
         "Night", "Techno"},
        {"another revision", id3Tag(3, 0, frames).replace(4, 1, 1, '\1'), "(none)", "(none)"},
        {"a number with a refinement", id3Tag(3, 0, textFrame("TCON", "(4)(17)Own")), "(none)",
         "Disco - Own"},
        {"genre numbers", id3Tag(3, 0, textFrame("TCON", "(17)")), "(none)", "Rock"},
        {"a bare number", id3Tag(3, 0, textFrame("TCON", "17")), "(none)", "Rock"},
        {"an unknown number", id3Tag(3, 0, textFrame("TCON", "250")), "(none)", "250"},
        {"several values",
         id3Tag(4, 0,
                textFrame("TCON",
                          std::string("House\0Techno\0"
                                      "17",
                                      15),
                          4)),
         "(none)", "House - Techno - Rock"},
        {"several frames", id3Tag(3, 0, frames + textFrame("TCON", "Techno")), "Night", "House - Techno"},
        {"an encrypted one too", id3Tag(3, 0, encrypted + encrypted + frames), "Night", "House"},
        {"a frame beyond the tag", id3Tag(3, 0, frames + "TPE1" + test::bytesOf(1'000'000, 4) + "xx"),
         "Night", "House"},
    };

    const TemporaryFolder folder;
    for (const auto& each : cases) {
        const Asset asset = openAsset(folder.write("tagged.mp3", each.tag + sound));
        EXPECT_EQ(last(asset, common_key::title), each.title) << each.name;
        EXPECT_EQ(last(asset, common_key::type), each.genre) << each.name;
    }
}

TEST(MediaAsset, OldTagsFillInButBringNoGenreBack) {
    std::string id3v1 = "TAGOld title";
    id3v1.resize(33, '\0');
    id3v1 += "Old artist";
    id3v1.resize(127, '\0');
    id3v1 += '\x11'; // Rock
    const TemporaryFolder folder;
    const auto path = folder.write("old.mp3", sound + id3v1);
    EXPECT_EQ(last(openAsset(path), common_key::artist), "Old artist");
    EXPECT_EQ(last(openAsset(path), common_key::type), "Rock");

    test::runMutagen(path,
                     "tag = APEv2()\ntag['Title'] = 'Ape title'\ntag['Genre'] = ['A', 'B']\ntag.save(path)");
    EXPECT_EQ(last(openAsset(path), common_key::title), "Ape title");
    EXPECT_EQ(last(openAsset(path), common_key::type), "A - B");

    const std::string all = id3Tag(3, 0, textFrame("TIT2", "New title")) + test::readFile(path) + id3v1;
    const Asset asset = openAsset(folder.write("all.mp3", all));
    EXPECT_EQ(last(asset, common_key::title), "New title");
    EXPECT_EQ(last(asset, common_key::artist), "Old artist");
    EXPECT_EQ(last(asset, common_key::type), "(none)");
}

TEST(MediaAsset, GivesValidUtf8AndBytesMarkers) {
    const TemporaryFolder folder;
    const std::string halfPair("\1\xFF\xFE\x41\0\x3D\xD8\x42\0", 9);
    const std::string frame = "TIT2" + test::bytesOf(halfPair.size(), 4) + std::string(2, '\0') + halfPair;
    const Asset broken = openAsset(folder.write("broken.mp3", id3Tag(3, 0, frame) + sound));
    for (const MetadataItem& item : broken.items)
        EXPECT_TRUE(item.text() == nullptr || text::isValidUtf8(*item.text()));

    const auto cover = test::makeSound(folder, "cover.m4a", {"-c:a", "aac"});
    test::runMutagen(cover, "f = MP4(path)\nf['covr'] = [MP4Cover(b'x' * 300000)]\nf['trkn'] = [(3, 12)]\n"
                            "f['----:com.apple.iTunes:MOOD'] = [MP4FreeForm(b'calm')]\nf.save()");
    bool sawCover = false;
    for (const MetadataItem& item : openAsset(cover).items) {
        sawCover = sawCover || (item.key == "covr" && std::holds_alternative<Binary>(item.value));
        EXPECT_EQ(item.numberValue.value_or(0), item.identifier == "itsk/trackNumber" ? 3 : 0);
    }
    EXPECT_TRUE(sawCover);
}

/// A title frame of raw content, its flags and any frames after it.
std::string titleTag(int version, const std::string& content, char format = 0, const std::string& more = {}) {
    const std::string header =
        version == 2 ? "TT2" + test::bytesOf(content.size(), 3)
                     : "TIT2" + test::bytesOf(content.size(), 4, version == 4 ? 7 : 8) + '\0' + format;
    return id3Tag(version, 0, header + content + more);
}

TEST(MediaAsset, Id3TextsReadAsTheirWritersReadThem) {
    using namespace std::string_literals;
    const std::string deflated("\x78\x9c\x63\xf0\xcb\x4c\xcf\x28\x01\x00\x05\xa9\x01\xfb", 14); // "\0Night"
    const std::string other = textFrame("TIT2", "Other");

    const struct {
        const char* name;
        std::string tag;
        std::string title;
    } cases[] = {
        {"Latin-1", titleTag(3, "\0\xC9t\xE9\0\0"s), "Été"},
        {"several values", titleTag(4, "\3One\0Two\0One"s), "One/Two/One"},
        {"a zero within, before version 2.4", titleTag(3, "\0One\0\0Two\0"s), "One/Two"},
        {"in version 2.2", titleTag(2, "\0One\0Two"s), "One/Two"},
        {"UTF-16", titleTag(3, "\1\xFF\xFE\x41\0\0\0\x42\0"s), "A/B"},
        {"UTF-16 with a mark for each", titleTag(3, "\1\xFE\xFF\0\x41\0\0\xFF\xFE\x42\0"s), "A/B"},
        {"UTF-16 without a mark", titleTag(3, "\1\0\x41\0\x42"s), "AB"},
        {"UTF-16 with a byte too many", titleTag(3, "\1\xFF\xFE\x41\0\x42"s), "A"},
        {"a surrogate pair", titleTag(3, "\1\xFF\xFE\x3D\xD8\x00\xDE"s), "😀"},
        {"half a pair", titleTag(3, "\1\xFF\xFE\x3D\xD8\x41\0"s), "\uFFFDA"},
        {"UTF-16 of a fixed order", titleTag(4, "\2\x4E\x2D\0\x41"s), "中A"},
        {"broken UTF-8", titleTag(4, "\3A\xFF"s), "A\uFFFD"},
        {"an unknown encoding", titleTag(3, "\7\xE9"s), "é"},
        {"an unknown encoding in version 2.4", titleTag(4, "\7\xC3\xA9"s), "é"},
        {"a name of version 2.2 in 2.3", id3Tag(3, 0, "TT2"s + '\0' + test::bytesOf(6, 4) + "\0\0\0Night"s),
         "Night"},
        {"the first of a name", titleTag(3, "\0One"s, 0, other), "One"},
        {"the first that has a text", titleTag(3, "\0\0"s, 0, other), "Other"},
        {"compressed", titleTag(3, "\0\0\0\6"s + deflated, '\x80'), "Night"},
        {"compressed in version 2.4", titleTag(4, "\0\0\0\6"s + deflated, '\x09'), "Night"},
        {"compressed and grouped", titleTag(3, "\0\0\0\6g"s + deflated, '\xA0'), "Night"},
        {"compressed and broken", titleTag(3, "\0\0\0\6"s + deflated.substr(0, 9), '\x80', other), "Other"},
        {"encrypted", titleTag(3, "xNight", '\x40', other), "Other"},
        {"unsynchronised by itself", titleTag(4, "\0Ni\xFF\0ght"s, '\x02'), "Niÿght"},
    };

    const TemporaryFolder folder;
    for (const auto& each : cases)
        EXPECT_EQ(last(openAsset(folder.write("tagged.mp3", each.tag + sound)), common_key::title),
                  each.title)
            << each.name;
}

/// Each of these made a parse cost memory or time beyond all proportion to the file.
TEST(MediaAsset, NoTextIsLongerThanAName) {
    constexpr std::size_t limit = 64 * 1024;
    const TemporaryFolder folder;
    const auto bomb = folder / "bomb.mp3";
    test::runMutagen(bomb,
                     "import zlib\n"
                     "content = (20_000_001).to_bytes(4, 'big') + zlib.compress(b'\\0' + b'x' * 20_000_000)\n"
                     "frame = b'TIT2' + len(content).to_bytes(4, 'big') + b'\\0\\x80' + content\n"
                     "size = len(frame)\n"
                     "head = b'ID3\\3\\0\\0' + bytes(size >> 7 * i & 127 for i in (3, 2, 1, 0))\n"
                     "open(path, 'wb').write(head + frame)");
    EXPECT_EQ(last(openAsset(folder.write("bomb.mp3", test::readFile(bomb) + sound)), common_key::title),
              "(none)");

    std::string genres;
    for (int i = 0; i < 50'000; ++i)
        genres += textFrame("TCON", std::to_string(i));
    const Asset frames = openAsset(folder.write("frames.mp3", id3Tag(3, 0, genres) + sound));
    EXPECT_EQ(frames.items.size(), 1U);

    const auto ape = folder.write("ape.mp3", sound);
    test::runMutagen(ape, "tag = APEv2()\ntag['Artist'] = [str(i) for i in range(100_000)]\n"
                          "tag['Title'] = 'x' * 200_000\ntag.save(path)");
    const auto flac = test::makeSound(folder, "a.flac");
    test::runMutagen(flac, "f = mutagen.File(path)\nf['genre'] = [str(i) for i in range(50_000)]\n"
                           "f['title'] = 'ä' * 100_000\nf.save()");
    const Asset all[] = {frames, openAsset(ape), openAsset(flac)};
    for (const Asset& asset : all)
        for (const MetadataItem& item : asset.items)
            EXPECT_LE(item.text() != nullptr ? item.text()->size() : 0, limit) << *item.key;
    EXPECT_EQ(last(all[1], common_key::artist).substr(0, 7), "0, 1, 2");
    EXPECT_EQ(last(all[2], common_key::title).size(), limit);
}

/// `file` with an atom more at the end of its "moov", which is its last.
std::string withAtom(std::string file, const std::string& atom) {
    const std::size_t name = file.find("moov");
    return file.replace(name - 4, 4, test::bytesOf(file.size() - name + 4 + atom.size(), 4)) + atom;
}

std::string atomOf(const std::string& name, const std::string& content) {
    return test::bytesOf(content.size() + 8, 4) + name + content;
}

TEST(MediaAsset, QuickTimesOwnEntriesAreReadBehindTheTagList) {
    using namespace std::string_literals;
    const TemporaryFolder folder;
    const auto bare =
        test::readFile(test::makeSound(folder, "bare.m4a", {"-map_metadata", "-1", "-fflags", "+bitexact"}));
    const std::string keys = "\0\0\0\0\0\0\0\2"s + atomOf("mdta", "com.apple.quicktime.title") +
                             atomOf("mdta", "com.apple.quicktime.genre");
    const std::string handler = atomOf("hdlr", std::string(8, '\0') + "mdta" + std::string(13, '\0'));
    const std::string data = atomOf("data", "\0\0\0\1\0\0\0\0House"s);
    const std::string list = atomOf("\0\0\0\2"s, data) + atomOf("\0\0\0\3"s, data);
    const auto metadata =
        folder.write("metadata.m4a",
                     withAtom(bare, atomOf("meta", handler + atomOf("keys", keys) + atomOf("ilst", list))));
    const Asset asset = openAsset(metadata);
    ASSERT_EQ(asset.items.size(), 1U);
    EXPECT_EQ(asset.items[0].identifier, identifier::quickTimeGenre);
    EXPECT_EQ(last(asset, common_key::type), "House");

    const auto user = test::makeSound(folder, "user.m4a", {"-f", "mov", "-metadata", "genre=House"});
    const Asset userData = openAsset(user);
    EXPECT_EQ(last(userData, common_key::type), "House");
    test::runMutagen(user, "f = MP4(path)\nf['\\xa9gen'] = 'Techno'\nf.save()");
    EXPECT_EQ(last(openAsset(user), common_key::type), "Techno");
}

MediaError::Case failureOf(const std::filesystem::path& path) {
    try {
        (void)openAsset(path);
    } catch (const MediaError& error) {
        return error.kind();
    }
    ADD_FAILURE() << path << " was opened";
    return MediaError::Case::cannotWrite;
}

TEST(MediaAsset, RefusesWhatIsNoSound) {
    using Case = MediaError::Case;
    const std::string size256MB = "\x7F\x7F\x7F\x7F";
    const std::string nested =
        test::repeated(std::string("\0\1\0\0moov", 8), 8192) + std::string(65536, '\0');
    const std::string manyAtoms = std::string("\0\0\0\x08"
                                              "ftyp",
                                              8) +
                                  test::repeated(std::string("\0\0\0\x08"
                                                             "free",
                                                             8),
                                                 200'000);
    const std::string noFormat =
        std::string("RIFF\0\0\0\0WAVE", 12) + test::repeated(std::string("junk\0\0\0\0", 8), 100'000);

    const struct {
        const char* name;
        std::string bytes;
        Case kind;
    } cases[] = {
        {"empty.mp3", "", Case::notAudio},
        {"empty.m4a", "", Case::notAudio},
        {"text.mp3", test::repeated("The quick brown fox. ", 100'000), Case::notAudio},
        {"text.flac", "hello", Case::notAudio},
        {"huge-tag.mp3", std::string("ID3\3\0\0", 6) + size256MB + textFrame("TIT2", "x"), Case::notAudio},
        {"sync.mp3", std::string(1'000'000, '\xFF'), Case::notAudio},
        {"nested.m4a", nested, Case::damaged},
        {"many.m4a", manyAtoms, Case::damaged},
        {"chunks.wav", noFormat, Case::damaged},
        {"stub.flac", "fLaC", Case::damaged},
        {"stub.aiff", std::string("FORM\0\0\0\4AIFF", 12), Case::damaged},
    };

    const TemporaryFolder folder;
    for (const auto& each : cases)
        EXPECT_EQ(failureOf(folder.write(each.name, each.bytes)), each.kind) << each.name;
    EXPECT_EQ(failureOf(folder / "missing.mp3"), Case::cannotOpen);
    EXPECT_EQ(failureOf(folder.path()), Case::cannotOpen);
    ASSERT_EQ(::mkfifo((folder / "pipe.mp3").c_str(), 0600), 0);
    EXPECT_EQ(failureOf(folder / "pipe.mp3"), Case::cannotOpen);
}

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST(ReadAhead, LeavesNothingOpenHoweverItEnds) {
    const TemporaryFolder folder;
    std::vector<std::string> paths;
    for (int i = 0; i < 300; ++i)
        paths.push_back(i % 3 == 0 ? (folder / "missing").native()
                                   : folder.write(std::to_string(i), std::string(1000, 'x')).native());
    const std::size_t before = openDescriptors();
    for (const std::size_t stop : {std::size_t{0}, std::size_t{100}, paths.size()}) {
        ReadAhead ahead(paths);
        for (std::size_t i = 0; i < stop; ++i)
            ahead.reached(i);
    }
    ReadAhead({});
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace velto::media
