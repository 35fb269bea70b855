#include "scanning/AudioMetadata.hpp"

#include <cstring>

namespace velto {

namespace {

/// A bit for each field that is present, in the order of `visitFields`; the values follow in that order.
using Presence = std::uint16_t;

template <typename Metadata, typename Visit>
void visitFields(Metadata& metadata, const Visit& visit) {
    visit(metadata.artist);
    visit(metadata.title);
    visit(metadata.album);
    visit(metadata.trackNumber);
    visit(metadata.genre);
    visit(metadata.bpm);
    visit(metadata.durationSec);
    visit(metadata.year);
    visit(metadata.bitrateKbps);
    visit(metadata.samplerateHz);
    visit(metadata.channels);
}

template <typename Number>
void append(std::string& bytes, const Number& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void append(std::string& bytes, const std::string& text) {
    append(bytes, text.size());
    bytes.append(text);
}

template <typename Number>
void take(std::string_view& bytes, Number& value) {
    std::memcpy(&value, bytes.data(), sizeof value);
    bytes.remove_prefix(sizeof value);
}

void take(std::string_view& bytes, std::string& text) {
    std::size_t size = 0;
    take(bytes, size);
    text.assign(bytes.substr(0, size));
    bytes.remove_prefix(size);
}

} // namespace

std::string packed(const AudioMetadata& metadata) {
    std::string bytes;
    bytes.reserve(256); // enough for most
    bytes.resize(sizeof(Presence));
    Presence presence = 0;
    unsigned bit = 0;
    visitFields(metadata, [&](const auto& field) {
        if (field) {
            presence = static_cast<Presence>(presence | (1U << bit));
            append(bytes, *field);
        }
        ++bit;
    });
    std::memcpy(bytes.data(), &presence, sizeof presence);
    bytes.shrink_to_fit();
    return bytes;
}

AudioMetadata unpacked(std::string_view bytes) {
    AudioMetadata metadata;
    Presence presence = 0;
    take(bytes, presence);
    unsigned bit = 0;
    visitFields(metadata, [&](auto& field) {
        if ((presence & (1U << bit++)) != 0) take(bytes, field.emplace());
    });
    return metadata;
}

} // namespace velto
