#pragma once

#include "support/TemporaryFolder.hpp"

#include <cstdint>
#include <string>
#include <vector>

/// Sound and tags for the tests of reading and rewriting: real files by ffmpeg, and bytes made by hand if
/// a test needs what no encoder writes.
namespace velto::test {

/// A sine tone in the format of the file's extension; `options` go in front of the output name.
inline std::filesystem::path makeSound(const TemporaryFolder& folder, const std::string& name,
                                       const std::vector<std::string>& options = {},
                                       const std::string& source = "sine=440:duration=1") {
    const std::filesystem::path path = folder / name;
    std::vector<std::string> arguments{"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(path.native());
    runProgram(arguments);
    return path;
}

/// Runs Python lines with mutagen at hand and `path` set to the file; what they print.
inline std::string runMutagen(const std::filesystem::path& path, const std::string& lines) {
    return runProgram(
        {"/usr/bin/python3", "-c",
         "import sys, mutagen\nfrom mutagen.id3 import ID3, TIT2, TPE1, TALB, TCON, TDRC, TYER, TRCK, TSOT, "
         "PRIV\nfrom mutagen.mp4 import MP4, MP4Cover, MP4FreeForm, AtomDataType\n"
         "from mutagen.aiff import AIFF\nfrom mutagen.apev2 import APEv2\npath = sys.argv[1]\n" +
             lines,
         path.native()});
}

inline std::string bytesOf(std::uint64_t value, int count, int bitsEach = 8) {
    std::string bytes;
    for (int i = count - 1; i >= 0; --i)
        bytes += static_cast<char>(value >> (i * bitsEach) & ((1U << bitsEach) - 1));
    return bytes;
}

/// An ID3 text frame in Latin-1. Version 2.4 sizes are synch-safe unless `plainSize`.
inline std::string textFrame(const std::string& name, const std::string& text, int version = 3,
                             bool plainSize = false) {
    const std::string content = '\0' + text;
    if (version == 2) return name + bytesOf(content.size(), 3) + content;
    return name + bytesOf(content.size(), 4, version == 4 && !plainSize ? 7 : 8) + std::string(2, '\0') +
           content;
}

inline std::string id3Tag(int version, int flags, const std::string& body) {
    return std::string("ID3") + static_cast<char>(version) + '\0' + static_cast<char>(flags) +
           bytesOf(body.size(), 4, 7) + body;
}

/// MPEG 1 layer 3 at 44,100 Hz: `bitRateIndex` 9 is 128 kbit/s, 14 is 320 kbit/s.
inline std::string mpegFrame(unsigned bitRateIndex, std::size_t size) {
    std::string frame("\xFF\xFB", 2);
    frame += static_cast<char>(bitRateIndex << 4);
    frame.resize(size, '\0');
    return frame;
}

inline std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

} // namespace velto::test
