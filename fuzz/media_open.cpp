#include "Fuzzer.hpp"

#include "media/Asset.hpp"
#include "platform/text/Text.hpp"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

namespace {

constexpr std::array extensions{".mp3", ".m4a", ".aac", ".flac", ".wav", ".aiff"};

std::filesystem::path scratchFile(std::size_t kind) {
    static const std::filesystem::path folder = [] {
        auto made = std::filesystem::temp_directory_path() / ("media_open." + std::to_string(::getpid()));
        std::filesystem::create_directories(made);
        return made;
    }();
    return folder / (std::string("file") + extensions.at(kind));
}

} // namespace

/// The first byte chooses the extension, the rest is the file: it opens with valid texts or is refused.
void fuzzOne(std::span<const std::uint8_t> input) {
    if (input.empty()) return;
    const auto path = scratchFile(input[0] % extensions.size());
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(input.data()) + 1,
                   static_cast<std::streamsize>(input.size() - 1));
    }
    try {
        for (const auto& item : velto::media::openAsset(path).items)
            fuzz::require(item.text() == nullptr || velto::text::isValidUtf8(*item.text()),
                          "texts are UTF-8");
    } catch (const velto::media::MediaError&) {
        return;
    }
}
