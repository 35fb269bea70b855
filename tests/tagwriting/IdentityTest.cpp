#include "platform/concurrency/Executors.hpp"
#include "scanning/MetadataExtractor.hpp"
#include "store/CanonicalSignature.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/TagFixtures.hpp"

#include <gtest/gtest.h>

using namespace velto;
using namespace velto::test;

namespace {

std::string artistOf3(const std::string& content) {
    return tagOf(3, frameOf(3, "TPE1", content) + frameOf(3, "TIT2", raw("\0Title")));
}

std::string artistOf4(const std::string& content, const std::string& flags = std::string(2, '\0')) {
    return tagOf(4, frameOf(4, "TPE1", content, flags) + frameOf(4, "TIT2", raw("\3Title")));
}

} // namespace

// A song keeps its name when it is tagged: else its user would be charged for it again. What the scan makes
// of a tag and what a rewrite carries over must be the same text, whatever the tag looks like.
TEST(Identity, survivesARewrite) {
    struct Row {
        const char* what;
        std::string head;
        std::string expected; ///< artist, title and album as the song's name begins
    };

    const std::string other = frameOf(3, "TIT2", raw("\0Title"));
    const std::string artist = frameOf(3, "TPE1", raw("\0A"));
    std::string wide;
    for (int i = 0; i < 150; ++i)
        wide += raw("\0x");
    const std::vector<Row> rows{
        {"no tag", "", "artist|name|"},
        {"several values",
         tagOf(4, frameOf(4, "TPE1", raw("\3A\0B")) + frameOf(4, "TIT2", raw("\3T\0U\0\0")) +
                      frameOf(4, "TALB", raw("\1\xFF\xFEL\0\0\0\xFF\xFEM\0"))),
         "a/b|t/u|l/m|"},
        {"the same value twice", artistOf4(raw("\3A\0A")), "a/a|title|"},
        {"an empty value", artistOf4(raw("\3A\0\0B")), "a/b|title|"},
        {"two frames of a name",
         tagOf(3, frameOf(3, "TPE1", raw("\0First")) + frameOf(3, "TPE1", raw("\0Second")) + other +
                      frameOf(3, "TALB", raw("\0L1")) + frameOf(3, "TALB", raw("\0L2"))),
         "first|title|l1|"},
        {"an empty first frame",
         tagOf(3, frameOf(3, "TPE1", raw("\0")) + frameOf(3, "TPE1", raw("\0Later")) + other),
         "later|title|"},
        {"zero byte in 2.3", artistOf3(raw("\0Art\0ist")), "art/ist|title|"},
        {"zero unit in 2.3",
         artistOf3(raw("\1\xFF\xFE"
                       "A\0\0\0B\0")),
         "a/b|title|"},
        {"UTF-16 without a mark", artistOf3(raw("\1N\0o\0")), "no|title|"},
        {"UTF-16 without a mark, big-endian", artistOf3(raw("\1\0N\0o")), "no|title|"},
        {"UTF-16 big-endian by its mark", artistOf3(raw("\1\xFE\xFF\0N\0o")), "no|title|"},
        {"two marks", artistOf3(raw("\1\xFF\xFE\xFF\xFEN\0o\0")), "\xEF\xBB\xBFno|title|"},
        {"UTF-16BE", artistOf4(raw("\2\0N\0o")), "no|title|"},
        {"half a pair", artistOf3(raw("\1\xFF\xFE\x3C\xD8H\0")), "\xEF\xBF\xBDh|title|"},
        {"odd length", artistOf3(raw("\1\xFF\xFEN\0o\0x")), "no|title|"},
        {"UTF-8 in 2.3", artistOf3(raw("\3\xC3\xA9")), "é|title|"},
        {"broken UTF-8", artistOf4(raw("\3\xC3(x")), "\xEF\xBF\xBD(x|title|"},
        {"ISO-8859-1", artistOf3(raw("\0Caf\xE9")), "café|title|"},
        {"another code page", artistOf3(raw("\0\xC0\xF0\xE8\xFF")), "àðèÿ|title|"},
        {"unknown encoding",
         artistOf3(raw("\x09"
                       "Enc")),
         "enc|title|"},
        {"no encoding byte", artistOf3("Noenc"), "oenc|title|"},
        {"control characters", artistOf3(raw("\0Art\x01\nist")), "art\x01\nist|title|"},
        {"blanks around", artistOf3(raw("\0  Art  ")), "art|title|"},
        {"version 2.2",
         tagOf(2,
               frameOf(2, "TP1", raw("\0A")) + frameOf(2, "TT2", raw("\0T")) + frameOf(2, "TAL", raw("\0L"))),
         "a|t|l|"},
        {"short names in 2.3",
         tagOf(3, frameOf(3, raw("TP1\0"), raw("\0A")) + frameOf(3, raw("TT2\0"), raw("\0T"))), "a|t|"},
        {"unsynchronised tag",
         tagOf(3, frameOf(3, "TPE1", raw("\1\xFF\xFEN\0")).insert(12, 1, '\0') + other, 0x80), "n|title|"},
        {"unsynchronised frame", artistOf4(raw("\1\xFF\0\xFEN\0"), raw("\0\x02")), "n|title|"},
        {"compressed, 2.3",
         tagOf(3, frameOf(3, "TPE1", raw("\0\0\0\x07") + compressed(raw("\0Packed")), raw("\0\x80")) + other),
         "packed|title|"},
        {"compressed, 2.4", artistOf4(synchsafe(7) + compressed(raw("\3Packed")), raw("\0\x09")),
         "packed|title|"},
        {"grouped", artistOf4(raw("g\3Art"), raw("\0\x40")), "art|title|"},
        {"two tags", artistOf3(raw("\0One")) + artistOf3(raw("\0Two")), "one|title|"},
        {"an extended header that is none",
         tagOf(3, frameOf(3, "TXXX", raw("\0K\0V")) + artist + other, 0x40), "a|title|"},
        {"a size that is plain in 2.4, with a 0 where it would end otherwise",
         tagOf(4, "COMM" + raw("\0\0\1\x2C\0\0\2eng\0\0") + wide.substr(0, 294) +
                      frameOf(4, "TPE1", raw("\3A")) + frameOf(4, "TIT2", raw("\3Title"))),
         "a|title|"},
        {"a flag of unsynchronisation alone",
         tagOf(3, frameOf(3, "TPE1", raw("\0A\xFF\0\xFF\xE0")) + other, 0x80),
         "a\xC3\xBF/\xC3\xBF\xC3\xA0|title|"},
        {"a track with a name like a text", tagOf(3, frameOf(3, "TRCK", raw("\0A1")) + other), "|title|"},
    };
    const TemporaryFolder folder;
    const std::string audio = audioOf(makeSound(folder, "plain.mp3", {"-map_metadata", "-1"}));
    const std::string end = "TAG" + std::string("V1 title").append(22, '\0') +
                            std::string("V1 artist").append(21, '\0') +
                            std::string("V1 album").append(66, '\0') + "\x11";
    TestRuntime runtime;
    CountingReporter reporter;
    RewriteJournal journal;
    SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
    SimpleMetadataExtractor extractor(reporter);
    const auto nameOf = [&](const std::filesystem::path& file) {
        const AudioMetadata found =
            runtime.run(runOn(runtime.executors().pool, extractor.extractMetadata(file)));
        return canonicalSig(found.artist, found.title, found.album, found.durationSec);
    };
    for (const std::string& tail : {std::string(), end})
        for (const Row& row : rows) {
            const auto file = folder.write("Artist - Name.mp3", row.head + audio + tail);
            const std::string before = nameOf(file);
            if (tail.empty()) {
                EXPECT_TRUE(before.starts_with(row.expected)) << row.what << ": " << before;
            }
            runtime.run(writer.writeGenreTags({"House", "1990s"}, file, false));
            EXPECT_EQ(nameOf(file), before) << row.what;
            runtime.run(writer.clearGenreTags(file));
            EXPECT_EQ(nameOf(file), before) << row.what;
        }
    EXPECT_EQ(reporter.errors, 0);
}

// What a rewrite cannot read it cannot carry over: then the file stays as it is.
TEST(Identity, isNotWrittenOver) {
    const std::string frames = frameOf(3, "TPE1", raw("\0A")) + frameOf(3, "TIT2", raw("\0T"));
    std::string wrongSize = tagOf(3, frames + std::string(300, '\0'));
    wrongSize.replace(6, 4, raw("\0\0\1\x80"));
    const TemporaryFolder folder;
    TestRuntime runtime;
    CountingReporter reporter;
    RewriteJournal journal;
    SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
    for (const auto& [what, head] : {
             std::pair("a frame that leaves the tag", tagOf(3, frames + "APIC" + raw("\0\0\7\0\0\0\0Short"))),
             {"a frame behind bytes of no name", tagOf(3, frames + "?!?!" + frameOf(3, "TALB", raw("\0L")))},
             {"a size with a high bit", wrongSize},
         }) {
        const std::string content = head + std::string(2000, '\x55');
        const auto file = folder.write("Artist - Name.mp3", content);
        EXPECT_ANY_THROW(runtime.run(writer.writeGenreTags({"House"}, file, false))) << what;
        EXPECT_EQ(readFile(file), content) << what;
    }
}
