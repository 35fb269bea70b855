#pragma once

#include "backend/GraphQLClient.hpp"
#include "backend/TaggingService.hpp"
#include "platform/log/CrashReporter.hpp"

namespace velto {

/// Client and crash reporter must outlive it. Holds no state: it neither waits nor retries.
class DefaultTaggingService final : public TaggingService {
  public:
    DefaultTaggingService(GraphQLClient& graphQLClient, CrashReporter& crashReporter);

    Task<TaggingResult> tagTracks(std::vector<TrackTaggingInput> tracks) override;

  private:
    Task<TagTracksData> request(std::vector<TrackTaggingInput> tracks);

    GraphQLClient& graphQLClient_;
    CrashReporter& crashReporter_;
};

} // namespace velto
