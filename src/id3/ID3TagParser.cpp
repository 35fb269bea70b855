#include "id3/ID3TagParser.hpp"

#include "id3/FrameValues.hpp"
#include "id3/ID3Genre.hpp"
#include "id3/TagFrames.hpp"
#include "id3/TextEncoding.hpp"

namespace velto::id3 {

namespace {

constexpr std::size_t mostInflated = std::size_t{64} << 20;

/// A walk that ends before its tag does leaves frames behind. What of them would have been carried over
/// counts as unreadable, so that nobody takes the tag for whole.
void noteUnreached(ByteView rest, ID3Tag& tag) {
    for (const FrameName::Kind kind : carriedKinds)
        if (asText(rest).find(frameDescription(kind).identifier(tag.properties.version)) !=
            std::string_view::npos)
            tag.unreadable.insert(kind);
}

void readFrames(ByteView body, const TagHeader& header, ID3Tag& tag) {
    TagBodyInMemory held(body);
    FrameWalk walk(held, header);
    FrameContents contents(header, mostInflated);
    std::optional<std::vector<std::string>> genres;
    while (const auto frame = walk.next()) {
        const FrameDescription* known = frameDescription(frame->identifier());
        if (known == nullptr || frame->size == 0) continue;
        const auto content = contents.content(
            body.subspan(static_cast<std::size_t>(frame->begin), static_cast<std::size_t>(frame->size)),
            frame->format);
        if (!content) tag.unreadable.insert(known->kind);
        if (!content || content->empty()) continue;
        if (known->kind != FrameName::genre) {
            addFrame(tag, frame->identifier(), *known, *content);
            continue;
        }
        if (!genres) genres.emplace();
        for (std::string& value : textValues(*content, tag.properties.version).values)
            genres->push_back(std::move(value));
    }
    if (genres) tag.frames.emplace(FrameName::genre, genreOf(*genres));
    const std::size_t frameHeaderSize = header.version == 2 ? 6 : 10;
    const ByteView rest = body.subspan(static_cast<std::size_t>(walk.position()));
    if (rest.size() > frameHeaderSize) noteUnreached(rest, tag);
}

} // namespace

std::optional<ID3Tag> parseTag(ByteView data) {
    constexpr std::size_t mark = 5; // a tag by its first bytes, whether its header is whole or not
    Bytes front(data.begin(),
                data.begin() + static_cast<std::ptrdiff_t>(std::min(data.size(), tagHeaderSize)));
    if (front.size() < mark) return std::nullopt;
    front.resize(tagHeaderSize);
    const auto header = tagHeader(front);
    const auto version = header ? header->knownVersion() : std::nullopt;
    if (!version) return std::nullopt;
    if (data.size() < tagHeaderSize + header->size)
        throw ID3TagEditorError(ID3TagEditorError::Case::corruptedFile);

    ID3Tag tag{{*version, header->size}, {}};
    if (header->isCompressed()) {
        for (int kind = FrameName::picture; kind <= FrameName::iTunesPodcastKeywords; ++kind)
            tag.unreadable.insert(static_cast<FrameName::Kind>(kind));
        return tag;
    }
    const ByteView body = data.subspan(tagHeaderSize, header->size);
    if (!header->isUnsynchronisedAsAWhole()) {
        readFrames(body, *header, tag);
    } else {
        Bytes undone(body.begin(), body.end());
        undoUnsynchronisation(undone);
        readFrames(undone, *header, tag);
    }
    return tag;
}

} // namespace velto::id3
