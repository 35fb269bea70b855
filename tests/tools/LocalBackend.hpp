#pragma once

#include "support/TemporaryFolder.hpp"
#include "tools/BackendProcess.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace velto::test {

using nlohmann::json;

inline constexpr const char* tagTracks =
    "mutation TagTracks($input: TagTracksInput!) {\n tagTracks(input: $input) { success message tracksTagged "
    "creditsConsumed results { id artist title genres regions era } errors { type message batchNumber } "
    "shouldRetry retryAfter } }";

inline json songs(int count) {
    auto tracks = json::array();
    for (int i = 0; i < count; ++i)
        tracks.push_back({{"id", std::to_string(i)},
                          {"artist", "Artist " + std::to_string(i % 40)},
                          {"title", "Title " + std::to_string(i)}});
    return {{"tracks", tracks}};
}

class LocalBackend : public testing::Test {
  protected:
    /// Starts a backend on this test's state and signs a@b.c in; the one before has to have ended.
    BackendProcess& start(std::vector<std::string> options = {}) {
        backend_.emplace(state(), std::move(options));
        token = backend_->signIn("a@b.c");
        return *backend_;
    }

    [[nodiscard]] std::filesystem::path state() const { return folder_ / "state/backend.sqlite"; }

    TemporaryFolder folder_;
    std::optional<BackendProcess> backend_;
    std::string token; ///< of a@b.c
};

} // namespace velto::test
