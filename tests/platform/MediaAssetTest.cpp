#include "platform/MediaSamples.hpp"
#include "platform/media/Asset.hpp"
#include "platform/media/ReadAhead.hpp"
#include "platform/text/Text.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>

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
         "House"},
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

std::string told(const Asset& asset) {
    std::string all;
    for (const MetadataItem& item : asset.items)
        if (item.key != "TXXX")
            all +=
                fmt::format("{}|{}|{}|{}|{}|{}\n", item.commonKey.value_or("-"),
                            item.identifier.value_or("-"), *item.key, item.description,
                            item.text() != nullptr ? *item.text() : "(none)", item.numberValue.value_or(-1));
    return all;
}

std::string inVersion2(std::string_view name) {
    return name == "TIT2"   ? "TT2"
           : name == "TCON" ? "TCO"
           : name == "TRCK" ? "TRK"
           : name == "TYER" ? "TYE"
                            : "TXY";
}

/// Usual tags are read by a short way, others by TagLib: a frame that only TagLib knows sends the same tag
/// both ways.
TEST(MediaAsset, BothWaysOfReadingATagAgree) {
    using namespace std::string_literals;
    const std::string contents[] = {"\0Plain"s,
                                    "\0\xC9t\xE9\0\0"s,
                                    "\0"s,
                                    "\0One\0Two"s,
                                    "\1\xFF\xFE\x41\0\xE9\0"s,
                                    "\1\xFE\xFF\0\x41\x4E\x2D\0\0"s,
                                    "\1\x41\0"s,
                                    "\1\xFF\xFE\x41\0\x42"s,
                                    "\1\xFF\xFE\x3D\xD8\x42\0"s,
                                    "\1\xFF\xFE\x3D\xD8\x00\xDE"s,
                                    "\2\x4E\x2D\0\x41"s,
                                    "\3\xE5\xA4\x9C\0"s,
                                    "\3\xFF\xFE"s,
                                    "\4Odd"s,
                                    "\0(17)"s,
                                    "\0(17)Own"s,
                                    "\0"s + "17"s,
                                    "\0"s + "3/12"s,
                                    "\0RX"s,
                                    "\3House\0Techno"s,
                                    "\0"s + "1999-12-31"s,
                                    ""s};
    const TemporaryFolder folder;
    for (const int version : {2, 3, 4})
        for (const std::string& content : contents)
            for (const char* name : {"TIT2", "TCON", "TRCK", "TYER", "TDRC", "TSOP"}) {
                const std::string inTag = version == 2 ? inVersion2(name) : name;
                const std::string size =
                    test::bytesOf(content.size(), version == 2 ? 3 : 4, version == 4 ? 7 : 8);
                const std::string frame = inTag + size + std::string(version == 2 ? 0 : 2, '\0') + content;
                const std::string frames =
                    textFrame(version == 2 ? "TP1" : "TPE1", "Artist", version) + frame;
                const std::string other =
                    textFrame(version == 2 ? "TXX" : "TXXX", "x"s + '\0' + "y", version);
                const auto shortWay = folder.write("short.mp3", id3Tag(version, 0, frames) + sound);
                const auto longWay = folder.write("long.mp3", id3Tag(version, 0, other + frames) + sound);
                EXPECT_EQ(told(openAsset(shortWay)), told(openAsset(longWay)))
                    << name << " in version " << version << ", content " << testing::PrintToString(content);
            }
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

TEST(MediaAsset, SurvivesCutAndScribbledFiles) {
    const TemporaryFolder folder;
    std::mt19937 random(1);
    for (const char* name : {"a.mp3", "a.m4a", "a.flac", "a.wav", "a.aiff", "a.aac"}) {
        const std::string whole = test::readFile(test::makeSound(
            folder, name, {"-metadata", "title=Night", "-metadata", "genre=House", "-write_id3v2", "1"}));
        for (int round = 0; round < 200; ++round) {
            std::string bytes = whole;
            // The first kilobyte and the last hold what matters.
            for (int i = 0; i < 8; ++i) {
                const std::size_t at = random() % std::min<std::size_t>(1024, bytes.size());
                bytes[i % 2 == 0 ? at : bytes.size() - 1 - at] = static_cast<char>(random());
            }
            if (round % 4 == 0) bytes.resize(random() % bytes.size());
            try {
                for (const MetadataItem& item :
                     openAsset(folder.write(std::string("x-") + name, bytes)).items)
                    EXPECT_TRUE(item.text() == nullptr || text::isValidUtf8(*item.text()));
            } catch (const MediaError&) { // as good an answer
            }
        }
    }
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
