#include "id3/ID3TagCreator.hpp"

#include "id3/FrameBytes.hpp"
#include "id3/FrameIdentifiers.hpp"
#include "id3/TagFrames.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace velto::id3 {

namespace {

static_assert(std::variant_size_v<ID3Frame> == static_cast<std::size_t>(FrameContent::hourMinute) + 1);

/// The place of a frame in the tag.
std::ptrdiff_t rank(FrameName::Kind kind) {
    if (kind == FrameName::genre) return 1001;
    if (kind == FrameName::picture) return 1000;
    const auto found = std::find(carriedKinds.begin(), carriedKinds.end(), kind);
    return found != carriedKinds.end() ? found - carriedKinds.begin() : 100;
}

Bytes framesBytes(const ID3Tag& tag) {
    using Entry = std::pair<const FrameName, ID3Frame>;
    const ID3Version version = tag.properties.version;
    std::vector<const Entry*> entries;
    for (const Entry& entry : tag.frames)
        entries.push_back(&entry);
    std::stable_sort(entries.begin(), entries.end(), [](const Entry* left, const Entry* right) {
        return rank(left->first.kind) < rank(right->first.kind);
    });
    Bytes out;
    for (const Entry* entry : entries) {
        const auto& [name, frame] = *entry;
        const FrameDescription& description = frameDescription(name.kind);
        const auto identifier = description.identifier(version);
        if (identifier.empty() || frame.index() != static_cast<std::size_t>(description.content))
            throw ID3TagEditorError(ID3TagEditorError::Case::invalidTagData);
        const Bytes content =
            std::visit([&](const auto& value) { return contentBytes(value, version); }, frame);
        appendFrameHeader(out, identifier, content.size(), version);
        append(out, content);
    }
    return out;
}

} // namespace

Bytes tagBytes(const ID3Tag& tag) {
    const Bytes frames = framesBytes(tag);
    Bytes out = tagHeaderBytes(tag.properties.version, frames.size());
    // The limit holds for the tag with its header.
    (void)tagHeaderBytes(tag.properties.version, out.size() + frames.size());
    append(out, frames);
    return out;
}

} // namespace velto::id3
