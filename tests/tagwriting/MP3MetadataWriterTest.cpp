#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "tagwriting/GenreText.hpp"
#include "tagwriting/MetadataWriter.hpp"
#include "tagwriting/TagFixtures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/xattr.h>

using namespace velto;
using namespace velto::test;
using testing::ElementsAre;

namespace {

struct Writer {
    TestRuntime runtime;
    CountingReporter reporter;
    RewriteJournal journal;
    SimpleMetadataWriter writer{runtime.executors(), reporter, journal};

    void write(const std::vector<std::string>& genres, const std::filesystem::path& file,
               bool append = false) {
        runtime.run(writer.writeGenreTags(genres, file, append));
    }

    void clear(const std::filesystem::path& file) { runtime.run(writer.clearGenreTags(file)); }

    ServiceError::Case failure(const std::filesystem::path& file) {
        try {
            write({"Dub"}, file);
        } catch (const ServiceError& error) {
            return error.kind();
        }
        throw std::logic_error("it was written");
    }
};

std::string genreOf(const std::filesystem::path& file) {
    return mutagen("t=ID3(path)\nprint(''.join(t['TCON'].text) if 'TCON' in t else '(none)',end='')", file);
}

} // namespace

TEST(GenreText, merges) {
    struct Row {
        std::vector<std::string> genres;
        std::string existing;
        bool append;
        std::string expected;
    };

    for (const Row& row :
         std::vector<Row>{{{"Techno", "House", "Techno"}, "Dub", false, "House - Techno"},
                          {{"House - Deep House - 1990s"}, "Dub", false, "House - Deep House - 1990s"},
                          {{"Techno"}, "House - Dub", true, "Dub - House - Techno"},
                          {{"House"}, "House", true, "House"},
                          {{"A"}, "one text", true, "A - one text"},
                          {{"A"}, " - B -  - ", true, "A - B"},
                          {{"A - B"}, "B", true, "A - B - B"},
                          {{"b", "B", "é", "z"}, "", false, "B - b - z - é"},
                          {{}, "House", true, "House"},
                          {{}, "House", false, ""}})
        EXPECT_EQ(mergedGenreText(row.genres, row.existing, row.append), row.expected);
}

TEST(MP3MetadataWriter, writesAppendsAndClears) {
    const TemporaryFolder folder;
    Writer writer;
    const log::Capture log;
    const auto file = makeSound(folder, "Söng.MP3", {"-f", "mp3"});
    const std::string audio = audioOf(file);
    writer.write({"Techno", "House"}, file);
    EXPECT_EQ(genreOf(file), "House - Techno");
    writer.write({"Dub", "House"}, file, true);
    EXPECT_EQ(genreOf(file), "Dub - House - Techno");
    writer.write({}, file);
    EXPECT_EQ(genreOf(file), "");
    writer.clear(file);
    EXPECT_EQ(genreOf(file), "(none)");
    EXPECT_TRUE(audioOf(file) == audio);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("Söng.MP3"));
    EXPECT_THAT(log.lines(), ElementsAre("✅ [MP3] Wrote genre tags to Söng.MP3: 'House - Techno'",
                                         "✅ [MP3] Appended genre tags to Söng.MP3: 'Dub - House - Techno'",
                                         "✅ [MP3] Wrote genre tags to Söng.MP3: ''",
                                         "✅ [MP3] Cleared genre tags from Söng.MP3"));
}

TEST(MP3MetadataWriter, carriesTheNamedFramesOver) {
    const TemporaryFolder folder;
    Writer writer;
    const auto file = makeSound(folder, "song.mp3");
    mutagen("t=ID3()\n"
            "for f in (TIT2(3,'Tï'),TPE1(3,['A','B']),TALB(3,'Al'),TPE2(3,'AA'),TRCK(3,'A1'),TPOS(3,'01/02'),"
            "TCON(3,['House','Dub']),TBPM(3,'128'),TKEY(3,'8A'),COMM(3,'eng','','c'),TXXX(3,'x','y'),"
            "APIC(3,'image/png',3,'d',b'\\x89PNG'+b'\\xff\\x00'*999),APIC(3,'image/png',4,'b',b'back')): "
            "t.add(f)\n"
            "t.save(path,v2_version=4)",
            file);
    writer.write({"Acid"}, file, true);
    EXPECT_EQ(
        mutagen("t=ID3(path,translate=False)\n"
                "print(t.version,sorted(t.keys()))\n"
                "print(t['TIT2'],t['TPE1'],t['TALB'],t['TPE2'],t['TRCK'],t['TPOS'],t['TCON'],sep='|')\n"
                "print(t['APIC:'].data==b'\\x89PNG'+b'\\xff\\x00'*999,t['APIC:'].type==3,t['APIC:'].mime)",
                file),
        "(2, 3, 0) ['APIC:', 'TALB', 'TCON', 'TIT2', 'TPE1', 'TPE2', 'TPOS', 'TRCK']\n"
        "Tï|A/B|Al|AA|A1|01/02|Acid - Dub - House\n"
        "True True image/png\n");
}

TEST(MP3MetadataWriter, keepsTheFileItself) {
    const TemporaryFolder folder;
    Writer writer;
    const auto file = makeSound(folder, "song.mp3");
    const auto link = folder / "link.mp3";
    std::filesystem::create_symlink("song.mp3", link);
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    const bool hasAttributes = ::setxattr(file.c_str(), "user.test", "kept", 4, 0) == 0;
    struct ::stat before {};
    struct ::stat after {};

    ::stat(file.c_str(), &before);
    writer.write({"Dub"}, link);
    ::stat(file.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(after.st_mode & 07777, 0640U);
    EXPECT_EQ(::getxattr(file.c_str(), "user.test", nullptr, 0), hasAttributes ? 4 : -1);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(genreOf(file), "Dub");
}

TEST(MP3MetadataWriter, refusesWithoutTouching) {
    const TemporaryFolder folder;
    Writer writer;
    using Case = ServiceError::Case;
    EXPECT_EQ(writer.failure(folder / "absent.mp3"), Case::fileNotFound);
    EXPECT_EQ(writer.failure(folder / "absent.xyz"), Case::fileNotFound);
    EXPECT_EQ(writer.failure(folder.write("song.flac", "x")), Case::unsupportedFileType);
    std::filesystem::create_directory(folder / "folder.mp3");
    std::filesystem::create_directory(folder / "folder.m4a");
    EXPECT_EQ(writer.failure(folder / "folder.mp3"), Case::metadataWriteFailed);
    EXPECT_EQ(writer.failure(folder / "folder.m4a"), Case::metadataWriteFailed);
    ASSERT_EQ(::mkfifo((folder / "pipe.mp3").c_str(), 0600), 0);
    EXPECT_EQ(writer.failure(folder / "pipe.mp3"), Case::metadataWriteFailed);
    const std::string liar = raw("ID3\x03\0\0\x7F\x7F\x7F\x7Frest");
    EXPECT_EQ(writer.failure(folder.write("liar.mp3", liar)), Case::metadataWriteFailed);
    EXPECT_EQ(readFile(folder / "liar.mp3"), liar);
    const std::string misnamed = raw("\0\0\0\x14"
                                     "ftypM4A \0\0\0\0M4A \0\0\0\x08"
                                     "mdat");
    EXPECT_EQ(writer.failure(folder.write("misnamed.mp3", misnamed)), Case::metadataWriteFailed);
    EXPECT_EQ(readFile(folder / "misnamed.mp3"), misnamed);
    for (const std::string& head : {raw("ID3\x03\x01\0\0\0\0\x0E") + frameOf(3, "TIT2", raw("\0Hit")),
                                    tagOf(5, frameOf(4, "TIT2", raw("\0Hit"))), raw("ID3\x03"),
                                    tagOf(3, frameOf(3, "TPE1", raw("k\0Me"), raw("\0\x40"))),
                                    tagOf(4, frameOf(4, "APIC", raw("zzzzz"), raw("\0\x08")))}) {
        EXPECT_EQ(writer.failure(folder.write("liar.mp3", head)), Case::metadataWriteFailed);
        EXPECT_EQ(readFile(folder / "liar.mp3"), head);
    }
    std::filesystem::create_symlink("loop.mp3", folder / "loop.mp3");
    EXPECT_EQ(writer.failure(folder / "loop.mp3"), Case::metadataWriteFailed); // not that it is not there
    EXPECT_EQ(writer.reporter.errors, 14);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("folder.m4a", "folder.mp3", "liar.mp3", "loop.mp3",
                                                    "misnamed.mp3", "pipe.mp3", "song.flac"));
}

TEST(MP3MetadataWriter, takesTheLongestNameThatAFolderDoes) {
    const TemporaryFolder folder;
    const std::string name = std::string(251, 'n') + ".mp3";
    Writer().write({"Dub"}, folder.write(name, "\xFF\xFB sound"));
    EXPECT_EQ(genreOf(folder / name), "Dub");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre(name));
}

TEST(MP3MetadataWriter, fullDiskAtAnyByteLeavesTheFileWhole) {
    const TemporaryFolder folder;
    std::string audio = "\xFF\xFB";
    for (int index = 0; index < 600'000; ++index)
        audio += static_cast<char>(index * 13 ^ index >> 7);
    const std::vector<std::string> heads{"", tagOf(3, frameOf(3, "TIT2", raw("\0Old title")))};
    for (const std::string& head : heads) {
        const std::string original = head + audio;
        const std::size_t size = original.size();
        int failures = 0;
        int successes = 0;
        for (const std::size_t limit : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, size / 2, size - 1,
                                        size, size + 1, size + 500, size + 1500, size + 4000, size + 9000}) {
            const auto file = folder.write("song.mp3", original);
            ::chmod(file.c_str(), 0640);
            const bool done = succeedsWithFileLimit(limit, [&] { Writer().write({"Dub"}, file); });
            (done ? successes : failures) += 1;
            EXPECT_TRUE(done ? audioOf(file) == audio : readFile(file) == original) << limit;
            EXPECT_THAT(namesIn(folder.path()), ElementsAre("song.mp3")) << limit;
            struct ::stat after {};
            ::stat(file.c_str(), &after);
            EXPECT_EQ(after.st_mode & 07777, 0640U) << limit;
        }
        EXPECT_GE(failures, 6);
        EXPECT_GE(successes, 1);
    }
}
