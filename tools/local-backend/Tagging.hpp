#pragma once

#include "Faults.hpp"
#include "State.hpp"

#include <nlohmann/json_fwd.hpp>

namespace velto::local {

/// Answers TagTracks for `tracks` (TrackTaggingInput objects): tags by rules, one credit a tagged track,
/// charged all or nothing. The reply is a TagTracksResult.
[[nodiscard]] nlohmann::json tagBatch(State& state, std::int64_t account, const nlohmann::json& tracks,
                                      const std::optional<Fault>& fault);

} // namespace velto::local
