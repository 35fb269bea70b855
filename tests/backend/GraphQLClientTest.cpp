#include "backend/Doubles.hpp"
#include "backend/GraphQLError.hpp"
#include "backend/Json.hpp"
#include "backend/UserProfile.hpp"
#include "platform/log/Log.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

namespace velto {
namespace {

using Case = GraphQLClientError::Case;
using test::RecordingCrashReporter;
using test::ScriptedTransport;
using test::TestRuntime;

struct Number {
    static constexpr std::string_view typeName = "Number";
    std::int64_t n = 0;

    static Number decode(const json::Decoder& from) { return {from.at("n").integer()}; }
};

Task<std::optional<std::string>> token(std::optional<std::string> value) {
    co_return value;
}

class GraphQLClientTest : public testing::Test {
  protected:
    std::int64_t ask(GraphQLVariables variables = nullptr) {
        DefaultGraphQLClient client(
            endpoint,
            [this] {
                ++tokensAsked;
                return token(storedToken);
            },
            transport, crashReporter);
        return runtime.run(client.execute<Number>("query Q { n }", std::move(variables))).n;
    }

    std::string endpoint = "https://velto.test/api/graphql";
    std::optional<std::string> storedToken = "secret";
    int tokensAsked = 0;
    TestRuntime runtime;
    ScriptedTransport transport;
    RecordingCrashReporter crashReporter;
};

TEST_F(GraphQLClientTest, PostsTheDocumentWithTheToken) {
    transport.reply(200, R"({"data":{"n":7},"errors":[],"more":1})");
    transport.reply(200, R"({"data":{"n":8}})");
    EXPECT_EQ(ask(), 7);
    EXPECT_EQ(ask(std::make_shared<nlohmann::json>(nlohmann::json{{"input", {{"a", 1}}}})), 8);
    const http::Request& first = transport.requests[0];
    EXPECT_EQ(first.method, "POST");
    EXPECT_EQ(first.url, endpoint);
    EXPECT_EQ(first.timeout, Seconds(60));
    std::string headers;
    for (const auto& [name, value] : first.headers)
        headers += name + "=" + value + ";";
    EXPECT_EQ(headers, "Content-Type=application/json;Authorization=Bearer secret;");
    EXPECT_EQ(first.body, R"({"query":"query Q { n }"})");
    EXPECT_EQ(nlohmann::json::parse(transport.requests[1].body),
              nlohmann::json::parse(R"({"query":"query Q { n }","variables":{"input":{"a":1}}})"));
}

TEST_F(GraphQLClientTest, TurnsEveryReplyIntoItsFailure) {
    struct Row {
        std::optional<int> status;
        std::string body;
        Case expected;
        std::string text;    ///< start of the description
        std::string logLine; ///< one that must be there
        bool isRecorded = true;
    };

    const std::string invalid = "Invalid response from server";
    std::string manyValues = R"({"data":{"n":1},"more":[0)";
    for (int i = 0; i < 20'000; ++i)
        manyValues += ",0";
    manyValues += "]}";
    std::vector<Row> rows = {
        {std::nullopt, "", Case::invalidResponse, invalid, "Response is not HTTPURLResponse", false},
        {201, R"({"data":{"n":1}})", Case::invalidResponse, invalid, "Non-200 status code: 201", false},
        {500, "", Case::invalidResponse, invalid, "Non-200 status code: 500", false},
        {401, R"({"data":{"n":1}})", Case::unauthorized, "Unauthorized - please sign in again",
         "Unauthorized (401)", false},
        {200, R"({"data":{"n":1},"errors":[{"message":"x"},{"message":"y"}]})", Case::graphQLErrors, "x",
         "GraphQL error: x"},
        {200, R"({"data":null})", Case::invalidResponse, invalid, "Response data is nil"},
        {200, "{}", Case::invalidResponse, invalid, "GraphQL error: " + invalid},
    };
    const std::pair<std::string, const char*> undecodable[] = {
        {R"({"errors":[{"message":"x","path":["a",1]}]})", ""},
        {R"({"errors":[{"message":"x","extensions":{"a":{}}}]})", ""},
        {R"({"errors":[{"path":[]}]})", ""},
        {R"({"data":{"n":"1"}})", "the reply.data.n: "},
        {R"({"data":{"n":1.5}})", ""},
        {R"({"data":{"n":9223372036854775808}})", ""},
        {R"({"data":{"n":1e999}})", ""},
        {R"({"data":{}})", ""},
        {"[]", ""},
        {"", "The data is not valid JSON from byte 1 on"},
        {"{\"data\":{\"n\":\"\xff\"}}", ""},
        {std::string(1'000'000, '['), ""},
        {manyValues, "The JSON holds over 20000 values"},
        {"\"" + std::string(1'000'000, 'x'), ""},
    };
    for (const auto& [body, reason] : undecodable)
        rows.push_back({200, body, Case::decodingError, std::string("Failed to decode response: ") + reason,
                        "Failed to decode type: Number"});
    for (const Row& row : rows) {
        const log::Capture log;
        const std::size_t recorded = crashReporter.errors.size();
        transport.reply(row.status, row.body);
        const std::string shown = row.body.substr(0, 80);
        try {
            ask();
            ADD_FAILURE() << shown;
        } catch (const GraphQLClientError& error) {
            EXPECT_EQ(error.kind(), row.expected) << shown;
            EXPECT_TRUE(error.errorDescription().starts_with(row.text)) << error.errorDescription();
            EXPECT_LT(error.errorDescription().size(), 1000U) << shown;
        }
        EXPECT_TRUE(log.contains("❌ [GraphQL] " + row.logLine)) << shown;
        EXPECT_EQ(crashReporter.errors.size() - recorded, row.isRecorded ? 1U : 0U) << shown;
    }
}

TEST_F(GraphQLClientTest, SendsNothingWithoutEndpointOrToken) {
    const auto kind = [this] {
        try {
            ask();
        } catch (const GraphQLClientError& error) {
            return error.kind();
        }
        return Case::networkError;
    };
    storedToken.reset();
    EXPECT_EQ(kind(), Case::noToken);
    endpoint = "no endpoint";
    EXPECT_EQ(kind(), Case::invalidURL);
    for (const char* open : {"http://velto.test/api/graphql", "HTTP://127.0.0.1.velto.test",
                             "http://1270.0.0.1", "http://127.0.0.1@velto.test/", "http://127.1"}) {
        endpoint = open;
        EXPECT_EQ(kind(), Case::openToOthers) << open;
    }
    EXPECT_EQ(tokensAsked, 1) << "the endpoint comes before the token";
    EXPECT_TRUE(transport.requests.empty());
    storedToken = "secret";
    for (const char* own :
         {"http://127.0.0.1:80/", "http://LOCALHOST/a", "http://[::1]:8080/", "http://127.9.9.9"}) {
        endpoint = own;
        transport.reply(200, R"({"data":{"n":1}})");
        EXPECT_EQ(ask(), 1) << own;
    }
}

TEST_F(GraphQLClientTest, LetsFailuresOfTheTransportThrough) {
    transport.fail(http::URLError::Code::timedOut);
    EXPECT_THROW(ask(), http::URLError);
    try {
        ask(std::make_shared<nlohmann::json>("\xff"));
        ADD_FAILURE();
    } catch (const json::CodingError& error) {
        EXPECT_EQ(error.errorDescription(), "The request holds text that is not UTF-8");
    }
    EXPECT_TRUE(crashReporter.errors.empty());
}

TEST_F(GraphQLClientTest, AKeyringThatFailsIsAnAbsentToken) {
    test::MemoryKeyring keyring;
    const TokenSource source = keyringTokenSource(keyring, runtime.executors());
    keyring.saveToken("a");
    EXPECT_EQ(runtime.run(source()), "a");
    keyring.failsToRetrieve = true;
    EXPECT_EQ(runtime.run(source()), std::nullopt);
}

TEST(AnyCodable, HoldsScalarsAndNothingElse) {
    using Json = nlohmann::json;
    const auto typeAfter = [](const char* text) {
        const Json value = Json::parse(text);
        const AnyCodable held = AnyCodable::decode(json::Decoder(value));
        EXPECT_EQ(held.encode(), value) << text;
        return &held.value.type();
    };
    EXPECT_EQ(typeAfter("1"), &typeid(std::int64_t));
    EXPECT_EQ(typeAfter("1.5"), &typeid(double));
    EXPECT_EQ(typeAfter("18446744073709551615"), &typeid(double));
    EXPECT_EQ(typeAfter("\"1\""), &typeid(std::string));
    EXPECT_EQ(typeAfter("true"), &typeid(bool));
    EXPECT_EQ(typeAfter("null"), &typeid(std::nullptr_t));
    EXPECT_THROW(typeAfter("[]"), json::CodingError);
    EXPECT_THROW(static_cast<void>(AnyCodable{'c'}.encode()), json::CodingError);
    EXPECT_THROW(static_cast<void>(AnyCodable{}.encode()), json::CodingError);
}

} // namespace
} // namespace velto
