#include "backend/DefaultTaggingService.hpp"
#include "backend/Doubles.hpp"
#include "backend/Selection.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace velto {
namespace {

using Case = TaggingServiceError::Case;
using Json = nlohmann::json;

Task<std::optional<std::string>> noToken() {
    co_return std::nullopt;
}

Task<std::optional<std::string>> aToken() {
    co_return "t";
}

class TaggingServiceTest : public testing::Test {
  protected:
    /// A reply with the fields that a row leaves out at their plain values.
    void reply(const char* changes) {
        Json data = Json::parse(
            R"({"success":true,"message":null,"tracksTagged":2,"creditsConsumed":2,"results":[],"errors":[]})");
        data.update(Json::parse(changes));
        transport.reply(200, Json{{"data", {{"tagTracks", data}}}}.dump());
    }

    TaggingResult tag(std::vector<TrackTaggingInput> tracks = {{"1", "A", "T", "L"},
                                                               {"2", "B", "U", std::nullopt}}) {
        return runtime.run(service.tagTracks(std::move(tracks)));
    }

    /// The failure's text, "" if there is none; `kind` is set if there is one.
    std::string failure(std::optional<Case>& kind) {
        try {
            tag();
        } catch (const TaggingServiceError& error) {
            kind = error.kind();
            return error.errorDescription();
        }
        return "";
    }

    test::TestRuntime runtime;
    test::ScriptedTransport transport;
    test::RecordingCrashReporter crashReporter;
    DefaultGraphQLClient client{"https://velto.test/api/graphql", &aToken, transport, crashReporter};
    DefaultTaggingService service{client, crashReporter};
};

TEST_F(TaggingServiceTest, SendsTheBatchAndBringsBackWhatItsDocumentSelects) {
    transport.adjust = test::asSelected;
    reply(R"({"results":[{"id":"2","artist":"B","title":"U","genres":["Hip-Hop"],"regions":[],"era":"1990s"},
                         {"id":"1","artist":"A","title":"T","genres":[],"regions":["UK"],"era":null}],
              "errors":[{"type":"rate_limit","message":"slow","batchNumber":3}],"shouldRetry":true,"retryAfter":2500})");
    const TaggingResult result = tag();
    EXPECT_EQ(Json::parse(transport.requests[0].body)["variables"],
              Json::parse(R"({"input":{"tracks":[{"id":"1","artist":"A","title":"T","album":"L"},
                                                 {"id":"2","artist":"B","title":"U"}]}})"));
    EXPECT_EQ(result.message, "No message provided");
    EXPECT_EQ(result.tracksTagged + result.creditsConsumed, 4);
    ASSERT_EQ(result.tags.size(), 2U);
    EXPECT_EQ(result.tags[0].id, "2");
    EXPECT_EQ(result.tags[0].era, "1990s");
    EXPECT_EQ(result.tags[1].regions, (std::vector<std::string>{"UK"}));
    EXPECT_EQ(result.tags[1].era, std::nullopt);
    ASSERT_EQ(result.errors.size(), 1U) << "errors beside a success are no failure";
    EXPECT_EQ(label(result.errors[0].type), "Rate Limit");
    EXPECT_EQ(result.errors[0].batchNumber, 3);
    EXPECT_EQ(result.shouldRetry, true);
    EXPECT_EQ(result.retryAfter, 2500);
}

TEST_F(TaggingServiceTest, BoundsTheNamesThatAReplyBrings) {
    const auto accents = [](std::size_t count) {
        std::string all;
        while (all.size() < 2 * count)
            all += "é";
        return all;
    };
    const std::pair<std::string, std::string> names[] = {
        {"Drum & Bass", "Drum & Bass"},
        {" House\r\n", "House"},
        {"Te\x1b[2Jch\x7fno\xc2\x9b\xe2\x80\xa8 ñ", "Te[2Jchno ñ"},
        {accents(200), accents(200)},
        {accents(199) + "\x01" + "ab", accents(199) + "a"},
        {std::string(1000, 'x'), std::string(200, 'x')},
    };
    for (const auto& [name, kept] : names) {
        Json results = Json::array({{{"id", "1"}, {"artist", "A"}, {"title", "T"}}});
        results[0].update(
            {{"genres", {name, "\x02 ", ""}}, {"regions", std::vector(60, name)}, {"era", name}});
        reply(Json{{"results", results}}.dump().c_str());
        const TrackTags tags = tag().tags.at(0);
        EXPECT_EQ(tags.genres, std::vector{kept});
        EXPECT_EQ(tags.regions, std::vector(50, kept));
        EXPECT_EQ(tags.era, kept);
    }
    reply(R"({"results":[{"id":"1","artist":"A","title":"T","genres":[],"regions":[],"era":" \t"}]})");
    EXPECT_EQ(tag().tags.at(0).era, std::nullopt);
}

TEST_F(TaggingServiceTest, ReadsRepliesWithoutSuccess) {
    struct Row {
        const char* changes;
        std::optional<Case> expected; ///< none: a result
        std::string text;
    };

    const Row rows[] = {
        {R"({"errors":[{"type":"rate_limit","message":"m"}],"message":"Insufficient credits","retryAfter":2500})",
         Case::rateLimitExceeded, "Rate limit exceeded. Please wait 2.5 seconds."},
        {R"({"errors":[{"type":"rate_limit","message":"m"}]})", Case::rateLimitExceeded,
         "Rate limit exceeded. Please try again later."},
        {R"({"message":"Sorry: Insufficient credits!","tracksTagged":1})", Case::insufficientCredits,
         "Insufficient credits. You need 2 credits but only have 0."},
        {R"({"message":"insufficient credits","tracksTagged":0})", std::nullopt, ""},
        {R"({"tracksTagged":1,"errors":[{"type":"parsing","message":"a"},{"type":"unknown","message":"b"}]})",
         Case::partialFailure, "Tagged 1 tracks successfully, but 1 failed:\na\nb"},
        {R"({"tracksTagged":2})", std::nullopt, ""},
        {R"({"tracksTagged":0})", std::nullopt, ""},
    };
    for (const Row& row : rows) {
        Json changes = Json::parse(row.changes);
        changes["success"] = false;
        reply(changes.dump().c_str());
        std::optional<Case> kind;
        EXPECT_EQ(failure(kind), row.text) << row.changes;
        EXPECT_EQ(kind, row.expected) << row.changes;
    }
    EXPECT_TRUE(crashReporter.errors.empty());
    // Of another shape:
    for (const char* changes :
         {R"({"errors":null})", R"({"errors":[{"type":"quota","message":"m"}]})", R"({"tracksTagged":"2"})",
          R"({"results":[{"id":1,"artist":"B","title":"U","genres":[],"regions":[]}]})",
          R"({"results":[{"id":"1","artist":"B","title":"U","genres":null,"regions":[]}]})",
          R"({"success":1})"}) {
        reply(changes);
        std::optional<Case> kind;
        EXPECT_TRUE(failure(kind).starts_with("Network error: Failed to decode response: ")) << changes;
        EXPECT_EQ(kind, Case::networkError);
    }
}

TEST_F(TaggingServiceTest, MapsTheClientsFailures) {
    using Code = http::URLError::Code;
    const std::pair<std::optional<Code>, std::size_t> rows[] = {{Code::notConnectedToInternet, 0},
                                                                {Code::networkConnectionLost, 0},
                                                                {Code::timedOut, 1},
                                                                {std::nullopt, 0}};
    for (const auto& [code, recorded] : rows) {
        code ? transport.fail(*code) : transport.reply(401, "{}");
        crashReporter.errors.clear();
        std::optional<Case> kind;
        const std::string text = failure(kind);
        EXPECT_EQ(kind, code ? Case::networkError : Case::authenticationRequired);
        EXPECT_EQ(text, code ? "Network error: " + http::URLError(*code).errorDescription()
                             : "Authentication required. Please sign in.");
        EXPECT_EQ(crashReporter.errors.size(), recorded) << text;
    }
    DefaultGraphQLClient signedOut("https://velto.test/api/graphql", &noToken, transport, crashReporter);
    DefaultTaggingService without(signedOut, crashReporter);
    try {
        runtime.run(without.tagTracks({}));
        ADD_FAILURE();
    } catch (const TaggingServiceError& error) {
        EXPECT_EQ(error.errorDescription(), "Network error: No authentication token found");
    }
}

} // namespace
} // namespace velto
