#include "id3/FrameIdentifiers.hpp"

#include <algorithm>
#include <array>
#include <cassert>

namespace velto::id3 {

namespace {

using Content = FrameContent;

// In the order of FrameName::Kind. Identifiers reach the user's files: do not change.
constexpr std::array<FrameDescription, 38> descriptions{{
    {FrameName::picture, Content::picture, "PIC", "APIC", "APIC"},
    {FrameName::lyrics, Content::localized, "ULT", "USLT", "USLT"},
    {FrameName::localizedComment, Content::localized, "COM", "COMM", "COMM"},
    {FrameName::title, Content::text, "TT2", "TIT2", "TIT2"},
    {FrameName::album, Content::text, "TAL", "TALB", "TALB"},
    {FrameName::albumArtist, Content::text, "TP2", "TPE2", "TPE2"},
    {FrameName::artist, Content::text, "TP1", "TPE1", "TPE1"},
    {FrameName::composer, Content::text, "TCM", "TCOM", "TCOM"},
    {FrameName::conductor, Content::text, "TP3", "TPE3", "TPE3"},
    {FrameName::contentGrouping, Content::text, "TT1", "TIT1", "TIT1"},
    {FrameName::copyright, Content::text, "TCR", "TCOP", "TCOP"},
    {FrameName::encodedBy, Content::text, "TEN", "TENC", "TENC"},
    {FrameName::encoderSettings, Content::text, "TSS", "TSSE", "TSSE"},
    {FrameName::fileOwner, Content::text, "", "TOWN", "TOWN"},
    {FrameName::lyricist, Content::text, "TXT", "TEXT", "TEXT"},
    {FrameName::mixArtist, Content::text, "TP4", "TPE4", "TPE4"},
    {FrameName::publisher, Content::text, "TPB", "TPUB", "TPUB"},
    {FrameName::subtitle, Content::text, "TT3", "TIT3", "TIT3"},
    {FrameName::beatsPerMinute, Content::integer, "TBP", "TBPM", "TBPM"},
    {FrameName::originalFilename, Content::text, "TOF", "TOFN", "TOFN"},
    {FrameName::lengthInMilliseconds, Content::integer, "TLE", "TLEN", "TLEN"},
    {FrameName::sizeInBytes, Content::integer, "TSI", "TSIZ", ""},
    {FrameName::genre, Content::genre, "TCO", "TCON", "TCON"},
    {FrameName::discPosition, Content::partOfTotal, "TPA", "TPOS", "TPOS"},
    {FrameName::trackPosition, Content::partOfTotal, "TRK", "TRCK", "TRCK"},
    {FrameName::initialKey, Content::text, "TKE", "TKEY", "TKEY"},
    {FrameName::recordingDayMonth, Content::dayMonth, "TDA", "TDAT", ""},
    {FrameName::recordingYear, Content::integer, "TYE", "TYER", ""},
    {FrameName::recordingHourMinute, Content::hourMinute, "TIM", "TIME", ""},
    {FrameName::recordingDateTime, Content::dateTime, "", "", "TDRC"},
    {FrameName::iTunesGrouping, Content::text, "GP1", "GRP1", "GRP1"},
    {FrameName::iTunesMovementName, Content::text, "MVN", "MVNM", "MVNM"},
    {FrameName::iTunesMovementIndex, Content::integer, "MVI", "MVIN", "MVIN"},
    {FrameName::iTunesMovementCount, Content::integer, "MVC", "MVCN", "MVCN"},
    {FrameName::iTunesPodcastCategory, Content::text, "TCT", "TCAT", "TCAT"},
    {FrameName::iTunesPodcastDescription, Content::text, "TDS", "TDES", "TDES"},
    {FrameName::iTunesPodcastID, Content::text, "TID", "TGID", "TGID"},
    {FrameName::iTunesPodcastKeywords, Content::text, "TKW", "TKWD", "TKWD"},
}};

constexpr bool inOrderOfKinds() {
    for (std::size_t index = 0; index < descriptions.size(); ++index)
        if (descriptions[index].kind != index) return false;
    return descriptions.size() == FrameName::iTunesPodcastKeywords + 1;
}

static_assert(inOrderOfKinds());

} // namespace

const FrameDescription& frameDescription(FrameName::Kind kind) {
    return descriptions.at(kind);
}

const FrameDescription* frameDescription(std::string_view identifier) {
    if (identifier.empty()) return nullptr;
    const auto found =
        std::find_if(descriptions.begin(), descriptions.end(), [&](const FrameDescription& entry) {
            return entry.identifier2 == identifier || entry.identifier3 == identifier ||
                   entry.identifier4 == identifier;
        });
    return found == descriptions.end() ? nullptr : &*found;
}

} // namespace velto::id3
