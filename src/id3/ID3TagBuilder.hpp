#pragma once

#include "id3/ID3Tag.hpp"

#include <string>
#include <utility>

namespace velto::id3 {

/// Collects the frames of one tag; every setter replaces the frame of its name and gives the builder back.
template <typename Builder, ID3Version version>
class ID3TagBuilder {
  public:
    using Text = ID3FrameWithStringContent;
    using Number = ID3FrameWithIntegerContent;
    using Localized = ID3FrameWithLocalizedContent;

    Builder& title(Text frame) { return set(FrameName::title, std::move(frame)); }

    Builder& album(Text frame) { return set(FrameName::album, std::move(frame)); }

    Builder& albumArtist(Text frame) { return set(FrameName::albumArtist, std::move(frame)); }

    Builder& artist(Text frame) { return set(FrameName::artist, std::move(frame)); }

    Builder& composer(Text frame) { return set(FrameName::composer, std::move(frame)); }

    Builder& conductor(Text frame) { return set(FrameName::conductor, std::move(frame)); }

    Builder& contentGrouping(Text frame) { return set(FrameName::contentGrouping, std::move(frame)); }

    Builder& copyright(Text frame) { return set(FrameName::copyright, std::move(frame)); }

    Builder& encodedBy(Text frame) { return set(FrameName::encodedBy, std::move(frame)); }

    Builder& encoderSettings(Text frame) { return set(FrameName::encoderSettings, std::move(frame)); }

    Builder& lyricist(Text frame) { return set(FrameName::lyricist, std::move(frame)); }

    Builder& mixArtist(Text frame) { return set(FrameName::mixArtist, std::move(frame)); }

    Builder& publisher(Text frame) { return set(FrameName::publisher, std::move(frame)); }

    Builder& subtitle(Text frame) { return set(FrameName::subtitle, std::move(frame)); }

    Builder& beatsPerMinute(Number frame) { return set(FrameName::beatsPerMinute, frame); }

    Builder& originalFilename(Text frame) { return set(FrameName::originalFilename, std::move(frame)); }

    Builder& lengthInMilliseconds(Number frame) { return set(FrameName::lengthInMilliseconds, frame); }

    Builder& genre(ID3FrameGenre frame) { return set(FrameName::genre, std::move(frame)); }

    Builder& discPosition(ID3FramePartOfTotal frame) {
        return set(FrameName::discPosition, std::move(frame));
    }

    Builder& trackPosition(ID3FramePartOfTotal frame) {
        return set(FrameName::trackPosition, std::move(frame));
    }

    Builder& initialKey(Text frame) { return set(FrameName::initialKey, std::move(frame)); }

    Builder& iTunesGrouping(Text frame) { return set(FrameName::iTunesGrouping, std::move(frame)); }

    Builder& iTunesMovementName(Text frame) { return set(FrameName::iTunesMovementName, std::move(frame)); }

    Builder& iTunesMovementIndex(Number frame) { return set(FrameName::iTunesMovementIndex, frame); }

    Builder& iTunesMovementCount(Number frame) { return set(FrameName::iTunesMovementCount, frame); }

    Builder& iTunesPodcastCategory(Text frame) {
        return set(FrameName::iTunesPodcastCategory, std::move(frame));
    }

    Builder& iTunesPodcastDescription(Text frame) {
        return set(FrameName::iTunesPodcastDescription, std::move(frame));
    }

    Builder& iTunesPodcastID(Text frame) { return set(FrameName::iTunesPodcastID, std::move(frame)); }

    Builder& iTunesPodcastKeywords(Text frame) {
        return set(FrameName::iTunesPodcastKeywords, std::move(frame));
    }

    Builder& unsynchronizedLyrics(Localized frame) {
        auto name = FrameName::unsynchronizedLyrics(frame.language);
        return set(std::move(name), std::move(frame));
    }

    Builder& comment(Localized frame) {
        auto name = FrameName::comment(frame.language);
        return set(std::move(name), std::move(frame));
    }

    Builder& attachedPicture(ID3FrameAttachedPicture frame) {
        auto name = FrameName::attachedPicture(frame.type);
        return set(std::move(name), std::move(frame));
    }

    /// The tag so far, in the builder's version; its size is computed when it is written.
    [[nodiscard]] ID3Tag build() const { return {{version, 0}, frames}; }

    std::map<FrameName, ID3Frame> frames;

  protected:
    Builder& set(FrameName name, ID3Frame frame) {
        frames.insert_or_assign(std::move(name), std::move(frame));
        return static_cast<Builder&>(*this);
    }
};

/// The date frames that versions 2.2 and 2.3 share.
template <typename Builder, ID3Version version>
class ID3TagBuilderBefore4 : public ID3TagBuilder<Builder, version> {
  public:
    Builder& recordingDayMonth(ID3FrameRecordingDayMonth frame) {
        return this->set(FrameName::recordingDayMonth, frame);
    }

    Builder& recordingYear(ID3FrameWithIntegerContent frame) {
        return this->set(FrameName::recordingYear, frame);
    }

    Builder& recordingHourMinute(ID3FrameRecordingHourMinute frame) {
        return this->set(FrameName::recordingHourMinute, frame);
    }

    Builder& sizeInBytes(ID3FrameWithIntegerContent frame) {
        return this->set(FrameName::sizeInBytes, frame);
    }
};

class ID32v2TagBuilder final : public ID3TagBuilderBefore4<ID32v2TagBuilder, ID3Version::version2> {};

class ID32v3TagBuilder final : public ID3TagBuilderBefore4<ID32v3TagBuilder, ID3Version::version3> {
  public:
    ID32v3TagBuilder& fileOwner(Text frame) { return set(FrameName::fileOwner, std::move(frame)); }
};

class ID32v4TagBuilder final : public ID3TagBuilder<ID32v4TagBuilder, ID3Version::version4> {
  public:
    ID32v4TagBuilder& fileOwner(Text frame) { return set(FrameName::fileOwner, std::move(frame)); }

    ID32v4TagBuilder& recordingDateTime(ID3FrameRecordingDateTime frame) {
        return set(FrameName::recordingDateTime, frame);
    }
};

} // namespace velto::id3
