#include "Fuzzer.hpp"

#include "id3/ID3TagCreator.hpp"
#include "id3/ID3TagParser.hpp"

using namespace velto::id3;

/// Bytes as the tag of a file; whatever is read can be written as what it is and reads the same again.
void fuzzOne(std::span<const std::uint8_t> input) {
    try {
        const auto tag = parseTag(input);
        if (!tag) return;
        for (const auto& [name, frame] : tag->frames) {
            ID3Tag single{{ID3Version::version3, 0}, {{name, frame}}};
            if (name.kind == FrameName::recordingDateTime) single.properties.version = ID3Version::version4;
            const auto again = parseTag(tagBytes(single));
            fuzz::require(again.has_value(), "a written tag reads");
            const bool isText = std::holds_alternative<ID3FrameWithStringContent>(frame);
            fuzz::require(!isText || again->frames == single.frames, "a text survives");
        }
    } catch (const ID3TagEditorError&) {
        return;
    }
}
