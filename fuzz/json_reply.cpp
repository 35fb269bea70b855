#include "Fuzzer.hpp"

#include "backend/GraphQLError.hpp"
#include "backend/Json.hpp"
#include "backend/TaggingRecords.hpp"
#include "backend/UserProfile.hpp"

#include <string_view>

namespace {

template <typename T>
void decode(const nlohmann::json& reply) {
    try {
        static_cast<void>(T::decode(velto::json::Decoder(reply)));
    } catch (const velto::json::CodingError& error) {
        fuzz::require(error.errorDescription().size() < 400, "a failure's text is short");
    }
}

} // namespace

/// Bytes as a backend's reply, read as each record in turn.
void fuzzOne(std::span<const std::uint8_t> input) {
    try {
        const auto reply = velto::json::parse({reinterpret_cast<const char*>(input.data()), input.size()});
        decode<velto::TagTracksResponse>(reply);
        decode<velto::UserPreferencesQueryResponse>(reply);
        decode<velto::GraphQLError>(reply);
    } catch (const velto::json::CodingError& error) {
        fuzz::require(error.errorDescription().size() < 400, "a failure's text is short");
    }
}
