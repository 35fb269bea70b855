#include "media/Asset.hpp"
#include "media/MediaSamples.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace velto::media {
namespace {

using test::mpegFrame;
using test::repeated;
using test::TemporaryFolder;

const std::string frame128 = mpegFrame(9, 417);
const std::string frame320 = mpegFrame(14, 1044);
constexpr double frameSeconds = 1152.0 / 44100;

TEST(MediaDuration, OfRealFiles) {
    // Loud and quiet parts in turn, so that a variable bit rate varies.
    const std::string changing =
        "anoisesrc=d=20:a=0.3:seed=1,volume='if(lt(mod(t,10),5),0.0001,1)':eval=frame";

    const struct {
        std::string name;
        std::vector<std::string> options;
        std::string source;
        double seconds;
        double tolerance;
    } cases[] = {
        {"vbr-no-header.mp3", {"-q:a", "2", "-write_xing", "0"}, changing, 20, 0.1},
        {"vbr-header.mp3", {"-q:a", "2"}, changing, 20, 0.1},
        {"cbr-no-header.mp3", {"-b:a", "192k", "-write_xing", "0"}, changing, 20, 0.1},
        {"mpeg2.mp3", {"-ar", "22050", "-q:a", "4", "-write_xing", "0"}, changing, 20, 0.1},
        {"raw.aac", {"-f", "adts", "-write_id3v2", "1", "-metadata", "title=T"}, changing, 20, 0.1},
        {"really-mp4.aac", {"-f", "ipod", "-c:a", "aac"}, changing, 20, 0.1},
        {"song.m4a", {"-c:a", "aac"}, changing, 20, 0.1},
        {"song.flac", {}, changing, 20, 0.0001},
        {"song.wav", {}, changing, 20, 0.0001},
        {"song.aif", {"-f", "aiff"}, changing, 20, 0.0001},
    };

    const TemporaryFolder folder;
    for (const auto& each : cases) {
        const auto path = test::makeSound(folder, each.name, each.options, each.source);
        EXPECT_NEAR(openAsset(path).durationSeconds, each.seconds, each.tolerance) << each.name;
    }
}

TEST(MediaDuration, OfMpegFramesMadeByHand) {
    std::string xing = frame320;
    xing.replace(36, 12, std::string("Xing\0\0\0\1\0\0\3\xE8", 12)); // 1,000 frames
    std::string vbri = frame320;
    vbri.replace(36, 4, "VBRI");
    vbri.replace(50, 4, std::string("\0\0\3\xE8", 4));
    std::string xingWithoutCount = frame320;
    xingWithoutCount.replace(36, 12, std::string("Xing\0\0\0\0\0\0\0\0", 12));
    const std::string mixed = repeated(frame128, 300) + repeated(frame320, 300);

    const struct {
        const char* name;
        std::string bytes;
        double frames;
    } cases[] = {
        {"one bit rate", repeated(frame128, 200), 200},
        {"the change lies behind the head", mixed, 600},
        {"a count of frames is believed", xing + repeated(frame128, 10), 1000},
        {"VBRI too", vbri + repeated(frame128, 10), 1000},
        {"a header without a count is none", xingWithoutCount + mixed, 601},
        {"junk in front", std::string(5000, 'x') + mixed, 600},
        {"junk between frames", mixed + std::string(3000, '\xFF') + mixed, 1200},
        {"a cut-off last frame", mixed + frame128.substr(0, 200), 601},
        {"free format", repeated(mpegFrame(0, 500), 200), 200},
        {"one frame", frame128, 1},
        {"behind a tag and in front of ID3v1",
         test::id3Tag(3, 0, std::string(50'000, '\0')) + mixed + "TAG" + std::string(125, ' '), 600},
    };

    const TemporaryFolder folder;
    for (const auto& each : cases) {
        const auto path = folder.write("hand.mp3", each.bytes);
        EXPECT_NEAR(openAsset(path).durationSeconds, each.frames * frameSeconds, 0.02) << each.name;
    }
}

TEST(MediaDuration, ARecordingThatWasCutOffLastsAsLongAsItsData) {
    const TemporaryFolder folder;
    const auto path = test::makeSound(folder, "cut.wav");
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_NEAR(openAsset(path).durationSeconds, 0.5, 0.01);
}

} // namespace
} // namespace velto::media
