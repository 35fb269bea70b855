#include "scanning/MetadataExtractor.hpp"
#include "media/MediaSamples.hpp"
#include "platform/files/ServiceError.hpp"
#include "support/RecordingCrashReporter.hpp"
#include "support/TestRuntime.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace velto {
namespace {

using media::MetadataItem;
using test::TemporaryFolder;

MetadataItem common(std::string_view commonKey, MetadataItem::Value value) {
    MetadataItem item;
    item.commonKey = commonKey;
    item.value = std::move(value);
    return item;
}

MetadataItem keyed(const char* identifier, const char* keySpace, const char* key, MetadataItem::Value value,
                   const char* description = "") {
    MetadataItem item;
    if (identifier != nullptr) item.identifier = identifier;
    if (keySpace != nullptr) item.keySpace = keySpace;
    if (key != nullptr) item.key = key;
    item.description = description;
    item.value = std::move(value);
    return item;
}

using Value = MetadataItem::Value;
const Value house = std::string("House");
const Value techno = std::string("Techno");

TEST(MetadataFromItems, TheGenreIsTheFirstHitOfTheSearch) {
    const struct {
        const char* name;
        std::vector<MetadataItem> items;
        std::optional<std::string> genre;
    } cases[] = {
        {"user genre", {keyed("itsk/%A9gen", nullptr, nullptr, house)}, "House"},
        {"TCON", {keyed("TCON", nullptr, nullptr, house)}, "House"},
        {"not a prefix of it", {keyed("id3/TCON", nullptr, nullptr, house)}, std::nullopt},
        {"an end", {keyed("udta/©gen", nullptr, nullptr, house)}, "House"},
        {"mdta", {keyed("mdta/com.apple.quicktime.genre", nullptr, nullptr, house)}, "House"},
        {"case matters", {keyed("mdta/GENRE", nullptr, nullptr, house)}, std::nullopt},
        {"gnre", {keyed("itsk/gnre", nullptr, nullptr, house)}, "House"},
        {"iTunes key", {keyed(nullptr, "com.apple.itunes", "my genre", house)}, "House"},
        {"another space", {keyed(nullptr, "mdta", "©gen", house)}, std::nullopt},
        {"user data", {keyed(nullptr, "udta", "©gen", house)}, "House"},
        {"user data has one key", {keyed(nullptr, "udta", "gnre", house)}, std::nullopt},
        {"words", {keyed(nullptr, nullptr, nullptr, house, "The GENRE of it")}, "House"},
        {"words need a text",
         {keyed(nullptr, nullptr, nullptr, std::int64_t{17}, "genre"),
          keyed("TCON", nullptr, nullptr, house)},
         "House"},
        {"first of two",
         {keyed("TCON", nullptr, nullptr, house), keyed("TCON", nullptr, nullptr, techno)},
         "House"},
        {"a number ends the search",
         {keyed("itsk/gnre", nullptr, nullptr, std::int64_t{17}), keyed("TCON", nullptr, nullptr, house)},
         std::nullopt},
        {"the common key wins",
         {keyed("TCON", nullptr, nullptr, house), common(media::common_key::type, techno)},
         "Techno"},
        {"the last common key wins",
         {common(media::common_key::type, house), common(media::common_key::type, techno)},
         "Techno"},
        {"even with nothing",
         {common(media::common_key::type, house), common(media::common_key::type, media::Binary{})},
         std::nullopt},
    };

    for (const auto& each : cases)
        EXPECT_EQ(metadataFromItems(each.items).genre, each.genre) << each.name;
}

TEST(MetadataFromItems, YearsAndTrackNumbers) {
    const std::pair<const char*, std::optional<std::int64_t>> years[] = {
        {"2019-05-01", 2019}, {"2019", 2019}, {"99", 99},   {"+99", 99},   {"-5", -5},
        {"May 2019", {}},     {"", {}},       {"19é9", {}}, {" 2019", {}}, {"+-9", {}},
    };
    for (const auto& [text, year] : years)
        EXPECT_EQ(metadataFromItems({common(media::common_key::creationDate, std::string(text))}).year, year)
            << text;
    // What does not parse leaves the year that was there.
    EXPECT_EQ(metadataFromItems({common(media::common_key::creationDate, std::string("1999")),
                                 common(media::common_key::creationDate, std::string("new")),
                                 common(media::common_key::creationDate, std::int64_t{2001})})
                  .year,
              1999);

    MetadataItem third = keyed("itsk/trackNumber", nullptr, nullptr, std::string("3"));
    third.numberValue = 3;
    EXPECT_EQ(metadataFromItems({third}).trackNumber, 3);
    const MetadataItem none = keyed("id3/trackNumber", nullptr, nullptr, std::string("A"));
    EXPECT_EQ(metadataFromItems({none, third}).trackNumber, std::nullopt);
}

TEST(FillFromFileName, SplitsAtDashes) {
    const struct {
        const char* file;
        std::optional<std::string> artist;
        std::string title;
    } cases[] = {
        {"/m/Artist - Title.mp3", "Artist", "Title"},  {"/m/Title.mp3", "Title", "Title"},
        {"/m/ Title .mp3", "Title", " Title "},        {"/m/A-ha - Take on me - Live.mp3", "A", "ha"},
        {"/m/--Title-.mp3", "Title", "--Title-"},      {"/m/-.mp3", std::nullopt, "-"},
        {"/m/Vol. 1 - No. 2.flac", "Vol. 1", "No. 2"}, {"/m/K\xFCnstler - Lied.mp3", "Künstler", "Lied"},
    };

    for (const auto& each : cases) {
        AudioMetadata metadata;
        fillFromFileName(metadata, each.file);
        EXPECT_EQ(metadata.artist, each.artist) << each.file;
        EXPECT_EQ(metadata.title, each.title) << each.file;
    }
    AudioMetadata tagged;
    tagged.title = "Night";
    fillFromFileName(tagged, "/m/Artist - Title.mp3");
    EXPECT_EQ(tagged.artist, std::nullopt);
}

TEST(SimpleMetadataExtractor, ReadsEveryFormat) {
    const std::string id3 =
        "tags = ID3()\n"
        "for frame in (TPE1, 'Künstler'), (TIT2, 'Nacht'), (TALB, 'Sterne'), (TCON, 'House'), "
        "(TDRC, '2019-05-01'), (TRCK, '3/12'): tags.add(frame[0](encoding=3, text=frame[1]))\n";
    const std::string asChunk = id3 + "f = mutagen.File(path)\nf.add_tags()\n"
                                      "for frame in tags.values(): f.tags.add(frame)\nf.save()";
    const std::string mp4 =
        "f = MP4(path)\nf['\\xa9ART'] = 'Künstler'\nf['\\xa9nam'] = 'Nacht'\n"
        "f['\\xa9alb'] = 'Sterne'\nf['\\xa9gen'] = 'House'\nf['\\xa9day'] = '2019-05-01'\n"
        "f['trkn'] = [(3, 12)]\nf.save()";
    const std::string vorbis = "f = mutagen.File(path)\nf['artist'] = 'Künstler'\nf['title'] = 'Nacht'\n"
                               "f['album'] = 'Sterne'\nf['genre'] = 'House'\nf['date'] = '2019-05-01'\n"
                               "f['tracknumber'] = '3/12'\nf.save()";
    const std::vector<std::string> info{"-metadata", "artist=Künstler", "-metadata", "title=Nacht",
                                        "-metadata", "album=Sterne",    "-metadata", "genre=House",
                                        "-metadata", "date=2019-05-01", "-metadata", "track=3"};

    const struct {
        const char* name;
        std::vector<std::string> options;
        std::string tags;
    } cases[] = {
        {"v24.mp3", {}, id3 + "tags.save(path)"},
        {"v23.MP3", {}, id3 + "tags.update_to_v23()\ntags.save(path, v2_version=3)"},
        {"raw.aac", {"-f", "adts"}, id3 + "tags.save(path)"},
        {"mp4.aac", {"-f", "ipod", "-c:a", "aac"}, mp4},
        {"a.m4a", {"-c:a", "aac"}, mp4},
        {"alac.m4a", {"-c:a", "alac"}, mp4},
        {"a.flac", {}, vorbis},
        {"info.wav", info, "pass"},
        {"id3.wav", {}, asChunk},
        {"a.aiff", {}, asChunk},
        {"a.aif", {"-f", "aiff"}, asChunk},
    };

    AudioMetadata expected;
    expected.artist = "Künstler";
    expected.title = "Nacht";
    expected.album = "Sterne";
    expected.trackNumber = 3;
    expected.genre = "House";
    expected.year = 2019;

    const TemporaryFolder folder;
    test::TestRuntime runtime;
    test::RecordingCrashReporter reporter;
    SimpleMetadataExtractor extractor(reporter);
    for (const auto& each : cases) {
        const auto path = test::makeSound(folder, each.name, each.options);
        test::runMutagen(path, each.tags);
        AudioMetadata metadata = runtime.run(extractor.extractMetadata(path));
        EXPECT_NEAR(metadata.durationSec.value_or(0), 1, 0.1) << each.name;
        metadata.durationSec.reset();
        EXPECT_EQ(metadata, expected) << each.name << ": " << metadata.genre.value_or("no genre");
    }
    EXPECT_TRUE(reporter.errors.empty());
}

TEST(SimpleMetadataExtractor, FailsWithTheCaseOfEachFault) {
    const TemporaryFolder folder;

    const struct {
        std::filesystem::path path;
        ServiceError::Case kind;
        std::string payload;
        std::size_t reported;
    } cases[] = {
        {folder / "missing.mp3", ServiceError::Case::fileNotFound, (folder / "missing.mp3").native(), 0},
        {folder.write("a.OGG", "x"), ServiceError::Case::unsupportedFileType, "OGG", 0},
        {folder.write("empty.mp3", ""), ServiceError::Case::metadataExtractionFailed,
         (folder / "empty.mp3").native(), 1},
        {folder.write("b\xFF.m4a", "text"), ServiceError::Case::metadataExtractionFailed,
         (folder / "b\xFF.m4a").native(), 1},
    };

    test::TestRuntime runtime;
    for (const auto& each : cases) {
        test::RecordingCrashReporter reporter;
        SimpleMetadataExtractor extractor(reporter);
        try {
            runtime.run(extractor.extractMetadata(each.path));
            ADD_FAILURE() << each.path;
        } catch (const ServiceError& error) {
            EXPECT_EQ(error.kind(), each.kind) << error.what();
            EXPECT_EQ(error.payload(), each.payload);
        }
        EXPECT_EQ(reporter.errors.size(), each.reported);
    }
}

TEST(AudioMetadata, ComesBackFromItsPackedForm) {
    AudioMetadata all{"artist", "t\xC3\xA4tle \xFF", "album", 3, "House", 124.5, 0.1, 1999, 320, 44100, 2};
    AudioMetadata some;
    some.album = "";
    some.genre = std::string("a\0b", 3) + std::string(70'000, 'x');
    some.trackNumber = std::numeric_limits<std::int64_t>::min();
    some.channels = 1;
    for (const AudioMetadata& metadata : {AudioMetadata(), all, some}) {
        EXPECT_EQ(unpacked(packed(metadata)), metadata);
        EXPECT_FALSE(packed(metadata).empty());
    }
}

} // namespace
} // namespace velto
