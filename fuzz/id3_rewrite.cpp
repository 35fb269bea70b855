#include "Fuzzer.hpp"

#include "tagwriting/mp3/ID3TagEditor.hpp"
#include "tagwriting/mp3/Mp3File.hpp"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

using namespace velto::id3;

namespace {

/// In memory where the machine has such a place; gone with the program.
struct Folder {
    std::filesystem::path path;

    Folder() {
        std::string pattern = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
        pattern += "/velto-fuzz-XXXXXX";
        fuzz::require(mkdtemp(pattern.data()) != nullptr, "a folder");
        path = pattern;
    }

    ~Folder() { std::filesystem::remove_all(path); }
};

const std::filesystem::path& folder() {
    static const Folder made;
    return made.path;
}

} // namespace

/// Bytes as an MP3 file: a rewrite either is refused with the file untouched, or gives a tag that reads as
/// meant in front of the same audio, and the next rewrite needs no more room.
void fuzzOne(std::span<const std::uint8_t> input) {
    const auto original = folder() / "original.mp3";
    const auto file = folder() / "file.mp3";
    std::ofstream(original, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
    std::filesystem::copy_file(original, file, std::filesystem::copy_options::overwrite_existing);
    try {
        ID3Tag tag = ID3TagEditor::read(file).value_or(ID3Tag());
        std::erase_if(tag.frames, [](const auto& entry) {
            return entry.first.kind != FrameName::title && entry.first.kind != FrameName::picture;
        });
        tag.properties.version = ID3Version::version3;
        tag.frames.insert_or_assign(FrameName::genre, ID3FrameGenre{std::nullopt, "House - 1990s"});
        ID3TagEditor::write(tag, file);
        const auto size = std::filesystem::file_size(file);
        fuzz::require(ID3TagEditor::sameAudio(file, original), "the audio is unchanged");
        fuzz::require(ID3TagEditor::read(file)->frames == tag.frames, "the tag reads as meant");
        ID3TagEditor::write(tag, file);
        fuzz::require(std::filesystem::file_size(file) == size, "the second write fits");
    } catch (const ID3TagEditorError& error) {
        fuzz::require(error.kind() == ID3TagEditorError::Case::corruptedFile, "only a wrong size is refused");
        fuzz::require(sameBytes(FileBytes(file, FileBytes::Mode::read), 0,
                                FileBytes(original, FileBytes::Mode::read), 0),
                      "a refused file is untouched");
    }
}
