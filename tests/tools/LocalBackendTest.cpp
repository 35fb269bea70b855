#include "tools/LocalBackend.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace velto::test {
namespace {

using testing::HasSubstr;

TEST_F(LocalBackend, AnswersExactlyWhatADocumentSelectsOrSaysWhatIsWrong) {
    auto& backend = start();
    token = backend.signIn("Ann@Example.org");

    struct Case {
        json request;
        const char* error; ///< Part of the message; nullptr: the data is `data`.
        json data = {};
    };

    const auto query = [](const char* text) { return json{{"query", text}}; };
    const Case cases[] = {
        {query("query GetUserAndDefaults {\n me {\n email\n name }\n creditBalance\n}"),
         nullptr,
         {{"me", {{"email", "ann@example.org"}, {"name", nullptr}}}, {"creditBalance", 1000}}},
        {query("{ mine: creditBalance, __typename # TagTracks\n}"),
         nullptr,
         {{"mine", 1000}, {"__typename", "Query"}}},
        {query("mutation { syncLibrary(input: {name: \"A \\\"B\\\"\"}) { library { name } } }"),
         nullptr,
         {{"syncLibrary", {{"library", {{"name", "A \"B\""}}}}}}},
        {{{"query", "query A { creditBalance } query B { me { email } }"}, {"operationName", "B"}},
         nullptr,
         {{"me", {{"email", "ann@example.org"}}}}},
        {query("query A { creditBalance } query B { creditBalance }"), "Must provide operation name"},
        {query("{ tagTracks }"), "Cannot query field \"tagTracks\" on type \"Query\""},
        {query("{ me }"), "must have a selection"},
        {query("{ a: creditBalance b: creditBalance c: creditBalance d: creditBalance e: creditBalance "
               "f: creditBalance g: creditBalance h: creditBalance i: creditBalance j: creditBalance me { id "
               "} }"),
         "too much"},
        {query("{ me { ...F } } fragment F on User { id }"), "Fragments are not supported"},
        {query("{ me { id }"), "Unexpected <EOF>"},
        {query("mutation { sendInvite(email: \"a@b.c\") { success } }"), "Unknown argument \"email\""},
        {{{"query", tagTracks}, {"variables", {{"input", nullptr}}}}, "must not be null"},
        {{{"query", tagTracks}, {"variables", {{"input", {{"tracks", {1}}}}}}}, "\"$input.tracks[0]\""},
        {json{{"query", std::string(5000, '{')}}, "Syntax Error"},
        {json{{"query", "mutation { deleteLibrary(input: " + std::string(3000, '[')}}, "nested too deeply"},
        {json{{"query", "{ creditBalance" + std::string(20'000, ' ') + "}"}}, "too long"},
        {json::array(), "Must provide query string"},
    };
    for (const auto& [request, error, data] : cases) {
        const auto answer = backend.post(token, request.dump());
        SCOPED_TRACE(request.dump().substr(0, 200));
        ASSERT_EQ(answer.status, 200);
        if (error)
            EXPECT_THAT(answer.error(), HasSubstr(error));
        else
            EXPECT_EQ(answer.data(), data);
    }
    EXPECT_THAT(backend.post(token, "{\"query\":").error(), HasSubstr("not valid JSON"));
    EXPECT_THAT(backend.post(token, std::string(1'000'000, '[')).error(), HasSubstr("nested too deeply"));
}

TEST_F(LocalBackend, RefusesStrangers) {
    auto& backend = start();
    const std::string body = R"({"query":"{ creditBalance }"})";
    EXPECT_EQ(backend.post("", body).status, 401);
    EXPECT_EQ(backend.post(token + "x", body).status, 401);
    EXPECT_EQ(backend.post("", body, {{"Authorization", "Basic " + token}}).status, 401);
    EXPECT_EQ(backend.post(token, body, {{"Host", "localhost:1"}}).status, 200);
    // A name that was pointed at this address, and pages of other sites.
    for (const auto& [name, value] : {std::pair("Host", "evil.example"),
                                      {"Host", "127.0.0.1.evil.example"},
                                      {"Origin", "https://evil.example"},
                                      {"Origin", "null"},
                                      {"Sec-Fetch-Site", "cross-site"}})
        EXPECT_EQ(backend.post(token, body, {{name, value}}).status, 403) << name << ": " << value;

    auto client = backend.client();
    EXPECT_EQ(client.Post("/control/faults", R"({"faults":["drop"]})", "application/json")->status, 404);
    EXPECT_EQ(client.Put("/api/graphql", "x", "text/plain")->status, 405);
    EXPECT_EQ(client.Get("/dashboard/billing")->status, 401);
    EXPECT_EQ(client.Get("/auth/desktop-login?email=nobody&format=text")->status, 400);
}

TEST_F(LocalBackend, RefusesBodiesOverTheLimitInEitherFraming) {
    auto& backend = start();
    const std::string block(1U << 20U, ' ');
    auto client = backend.client();
    client.set_default_headers({{"Authorization", "Bearer " + token}});
    const auto sized = client.Post(
        "/api/graphql", 65 * block.size(),
        [&](std::size_t, std::size_t length, httplib::DataSink& sink) {
            return sink.write(block.data(), std::min(length, block.size()));
        },
        "application/json");
    ASSERT_TRUE(sized);
    EXPECT_EQ(sized->status, 413);
    int left = 65;
    const auto chunked = client.Post(
        "/api/graphql",
        [&](std::size_t, httplib::DataSink& sink) {
            if (left-- > 0) return sink.write(block.data(), block.size());
            sink.done();
            return true;
        },
        "application/json");
    ASSERT_TRUE(chunked);
    EXPECT_EQ(chunked->status, 413);
    EXPECT_EQ(backend.credits(token), 1000);
}

TEST_F(LocalBackend, RefusesSmallRequestsThatMultiplyTheirTexts) {
    auto& backend = start();
    const auto remove = [&](int fields, int mentionsAField) {
        std::string list, document = "mutation($s: String!) {";
        for (int i = 0; i < mentionsAField; ++i)
            list += "$s ";
        for (char alias = 'a'; alias < 'a' + fields; ++alias)
            document += std::string(1, alias) + ": removeTracksFromLibrary(input: {libraryName: \"L\", " +
                        "canonicalSigs: [" + list + "]}) { success }";
        return json{{"query", document + "}"}, {"variables", {{"s", std::string(100'000, 's')}}}};
    };
    EXPECT_EQ(backend.post(token, remove(2, 10).dump()).data()["b"]["success"], false);
    EXPECT_THAT(backend.post(token, remove(3, 500).dump()).error(), HasSubstr("too large"));

    for (const auto& [document, error] :
         {std::pair("mutation($n: String!) { deleteLibrary(input: {libraryName: $n}) { a: message b: message "
                    "} }",
                    "\"message\" is selected twice"),
          {"query($n: String $n: String) { creditBalance }", "only one variable named \"$n\""}})
        EXPECT_THAT(
            backend.post(token, json{{"query", document}, {"variables", {{"n", "a"}}}}.dump()).error(),
            HasSubstr(error));
}

TEST_F(LocalBackend, ChargesACreditATaggedTrackAllOrNothing) {
    auto& backend = start({"--credits", "25"});
    auto input = songs(10);
    input["tracks"].push_back({{"id", "no title"}, {"artist", "A"}, {"title", ""}});
    input["tracks"].push_back({{"id", "no artist"}, {"title", "T"}});
    auto result = backend.graphql(token, tagTracks, input).data()["tagTracks"];
    EXPECT_EQ(result["success"], true);
    EXPECT_EQ(result["tracksTagged"], 10);
    EXPECT_EQ(result["creditsConsumed"], 10);
    ASSERT_EQ(result["errors"].size(), 2U);
    EXPECT_EQ(result["errors"][1]["type"], "parsing");
    EXPECT_THAT(result["errors"][1]["message"].get<std::string>(), HasSubstr("no artist"));
    EXPECT_THAT(result["message"].get<std::string>(), HasSubstr("not by AI"));
    EXPECT_EQ(backend.credits(token), 15);

    result = backend.graphql(token, tagTracks, songs(16)).data()["tagTracks"];
    EXPECT_EQ(result["success"], false);
    EXPECT_EQ(result["message"], "Insufficient credits: 16 needed, 15 available");

    result = backend.graphql(token, tagTracks, songs(51)).data()["tagTracks"];
    EXPECT_EQ(result["success"], false);
    EXPECT_THAT(result["message"].get<std::string>(), HasSubstr("at most 50"));
    EXPECT_EQ(backend.credits(token), 15);
    EXPECT_EQ(backend.graphql(token, tagTracks, songs(0)).data()["tagTracks"]["success"], true);
}

TEST_F(LocalBackend, NeverChargesMoreThanThereIsWhenBatchesRunAtOnce) {
    auto& backend = start({"--credits", "22"});
    std::atomic<int> done = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 8; ++i)
        clients.emplace_back([&] {
            const auto answer = backend.graphql(token, tagTracks, songs(5));
            if (answer.data()["tagTracks"]["success"] == true) ++done;
        });
    for (auto& client : clients)
        client.join();
    EXPECT_EQ(done, 4);
    EXPECT_EQ(backend.credits(token), 2);
}

TEST_F(LocalBackend, TagsByItsRulesAndAlwaysTheSame) {
    auto& backend = start();
    const auto tag = [&](const json& tracks) {
        return backend.graphql(token, tagTracks, {{"tracks", tracks}}).data()["tagTracks"]["results"];
    };
    const auto results =
        tag({{{"id", "7"}, {"artist", "Signal Quartet"}, {"title", "Habana Nights"}, {"album", "1962"}},
             {{"id", 8}, {"artist", "Berlin Foxes"}, {"title", "Rain (Drum and Bass Mix)"}},
             {{"id", "9"}, {"artist", "Houseboat"}, {"title", "Year 19995"}}});
    const auto words = [](const json& list) { return list.get<std::vector<std::string>>(); };
    EXPECT_THAT(words(results[0]["genres"]), testing::IsSupersetOf({"Afro-Cuban Jazz", "Jazz"}));
    EXPECT_THAT(words(results[0]["regions"]), testing::Contains("Caribbean"));
    EXPECT_EQ(results[0]["era"], "1960s");
    EXPECT_EQ(results[1]["id"], "8");
    EXPECT_EQ(results[1]["genres"][0], "Drum & Bass");
    EXPECT_EQ(results[1]["regions"][0], "Western Europe");
    // Only whole words count: neither the house in the boat nor the year in a longer number.
    EXPECT_THAT(words(results[2]["genres"]), testing::Not(testing::Contains("House")));

    const auto defaults = backend.graphql(token, "{ preferencesDefaults { genres regions eras } }")
                              .data()["preferencesDefaults"];
    auto tracks = songs(50)["tracks"];
    const auto first = tag(tracks);
    for (auto& track : tracks)
        track["artist"] = "ARTIST" + track["artist"].get<std::string>().substr(6);
    start();
    const auto again = tag(tracks);
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_THAT(words(defaults["genres"]), testing::IsSupersetOf(words(first[i]["genres"])));
        EXPECT_EQ(again[i]["genres"], first[i]["genres"]);
        EXPECT_EQ(again[i]["era"], first[i]["era"]);
    }
}

json track(const std::string& signature) {
    return {{"canonicalSig", signature},
            {"duration", 12.5},
            {"genreTags", {"House"}},
            {"regionTags", json::array()},
            {"filename", "a.mp3"},
            {"artist", "Ünïcode 🎉"},
            {"lastTagged", "2026-01-02T03:04:05.000Z"}};
}

TEST_F(LocalBackend, KeepsACopyOfEachLibraryPerAccount) {
    auto& backend = start();
    const auto ann = backend.signIn("ann@b.c"), bob = backend.signIn("bob@b.c");
    const auto call = [&](const std::string& account, const std::string& field, const std::string& type,
                          const std::string& selection, const json& input) {
        return backend
            .graphql(account,
                     "mutation M($input: " + type + "!) { " + field + "(input: $input) { " + selection +
                         " } }",
                     input)
            .data()
            .at(field);
    };
    const auto syncTracks = [&](const std::string& account, const std::string& library, const json& tracks) {
        return call(account, "syncTracks", "SyncTracksInput",
                    "success message syncedCount failedCount errors { canonicalSig message }",
                    {{"libraryName", library}, {"tracks", tracks}});
    };
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(call(ann, "syncLibrary", "SyncLibraryInput", "success", {{"name", "Crates"}})["success"],
                  true);
    auto result = syncTracks(ann, "Crates", {track("a"), track("b"), track("c")});
    EXPECT_EQ(result["syncedCount"], 3);
    result = syncTracks(ann, "Crates", {track("b"), track(""), track("d")});
    EXPECT_EQ(result["success"], false);
    EXPECT_EQ(result["syncedCount"], 2);
    EXPECT_EQ(result["failedCount"], 1);
    EXPECT_EQ(result["errors"][0]["canonicalSig"], "");
    EXPECT_EQ(syncTracks(bob, "Crates", json::array({track("a")}))["message"], "Library 'Crates' not found");

    const auto remove = [&](const std::string& account, const json& signatures) {
        return call(account, "removeTracksFromLibrary", "RemoveTracksInput", "success removedCount",
                    {{"libraryName", "Crates"}, {"canonicalSigs", signatures}});
    };
    EXPECT_EQ(remove(ann, {"a", "never there"}), (json{{"success", true}, {"removedCount", 1}}));
    EXPECT_EQ(remove(bob, json::array({"b"}))["success"], false);

    const auto deleteLibrary = [&] {
        return call(ann, "deleteLibrary", "DeleteLibraryInput", "success deletedTracksCount",
                    {{"libraryName", "Crates"}});
    };
    // b, c and d: the repeated track was an update.
    EXPECT_EQ(deleteLibrary(), (json{{"success", true}, {"deletedTracksCount", 3}}));
    EXPECT_EQ(deleteLibrary()["success"], false);
}

TEST_F(LocalBackend, InvitesEarnBothSidesCreditsOnce) {
    auto& backend = start({"--credits", "0"});
    const auto ann = backend.signIn("ann@b.c");
    const auto invite = [&](const std::string& email) {
        return backend
            .graphql(ann,
                     "mutation SendInvite($input: SendInviteInput!) { sendInvite(input: $input) { "
                     "success message invite { id code credits inviteeEmail } } }",
                     {{"email", email}})
            .data()["sendInvite"];
    };
    for (const char* wrong : {"", "bob@b@c", "ann@B.C"})
        EXPECT_EQ(invite(wrong)["success"], false) << wrong;
    const auto sent = invite(" Bob@b.c ");
    EXPECT_EQ(sent["invite"]["inviteeEmail"], "bob@b.c");
    EXPECT_EQ(invite("bob@b.c")["invite"]["code"], sent["invite"]["code"]);

    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(backend.credits(backend.signIn("bob@b.c")), 500);
    EXPECT_EQ(backend.credits(ann), 500);
    EXPECT_EQ(invite("bob@b.c")["success"], false);
}

TEST_F(LocalBackend, HasPagesForABrowser) {
    auto& backend = start({"--credits", "3"});
    auto client = backend.client();
    EXPECT_THAT(client.Get("/signup?email=%22%3E%3Cscript%3E")->body,
                testing::AllOf(HasSubstr("value=\"&quot;&gt;&lt;script&gt;\""), HasSubstr("not from AI")));
    const auto page =
        client.Post("/auth/desktop-login",
                    httplib::Params{{"email", "a&b@c.d"}, {"name", "N\xff\n" + std::string(500, 'x')}});
    ASSERT_EQ(page->status, 200);
    EXPECT_THAT(page->body, HasSubstr("a&amp;b@c.d"));
    const auto at = page->body.find("velto://auth?token=") + std::string("velto://auth?token=").size();
    token = page->body.substr(at, page->body.find('"', at) - at);
    EXPECT_EQ(token.size(), 43U);
    EXPECT_EQ(backend.credits(token), 3);

    const auto cookie = page->get_header_value("Set-Cookie");
    EXPECT_THAT(cookie, testing::AllOf(HasSubstr("HttpOnly"), HasSubstr("SameSite=Strict")));
    const httplib::Headers session{{"Cookie", "other=1; " + cookie.substr(0, cookie.find(';'))}};
    EXPECT_THAT(client.Get("/dashboard/billing", session)->body, HasSubstr(">3</strong> credits"));
    EXPECT_THAT(client.Post("/dashboard/billing", session, "", "text/plain")->body,
                HasSubstr(">503</strong>"));
    EXPECT_EQ(backend.credits(token), 503);

    const httplib::Params chosen{{"genre", "R&B/Soul"}, {"genre", "No such"}, {"region", "Oceania"}};
    EXPECT_EQ(client.Post("/dashboard/settings", session, chosen)->status, 200);
    const auto me = backend.graphql(token, "{ me { genres regions name } }").data()["me"];
    EXPECT_EQ(me["genres"], json{"R&B/Soul"});
    EXPECT_THAT(me["name"].get<std::string>(), testing::StartsWith("N\xEF\xBF\xBDxxx"));
}

TEST_F(LocalBackend, LeadsASignInBackToThisComputerOnly) {
    auto& backend = start();
    auto client = backend.client();
    const auto sign = [&](const std::string& target) {
        return client.Post("/auth/desktop-login", httplib::Params{{"email", "a@b.c"}, {"redirect", target}});
    };
    const std::string own = "http://127.0.0.1:4000/callback?state=1&x=2";
    EXPECT_THAT(client.Get("/auth/desktop-login", {{"redirect", own}}, httplib::Headers())->body,
                HasSubstr("name=\"redirect\" value=\"http://127.0.0.1:4000/callback?state=1&amp;x=2\""));
    const auto page = sign(own);
    EXPECT_EQ(page->status, 200);
    EXPECT_THAT(page->body,
                HasSubstr("content=\"0;url=http://127.0.0.1:4000/callback?state=1&amp;x=2&amp;token="));
    EXPECT_THAT(page->body, HasSubstr("velto://auth?token="));
    EXPECT_THAT(sign("http://localhost:1/")->body, HasSubstr("url=http://localhost:1/?token="));
    for (const char* other :
         {"https://127.0.0.1:1/", "http://evil.example:80/", "http://127.0.0.1.evil.example:1/",
          "http://127.0.0.1:1@evil.example:1/", "http://127.0.0.1/", "http://127.0.0.1:1", "//evil.example/",
          "/dashboard/../x", "http://127.0.0.1:1/\"><script>",
          "http://127.0.0.1:1/;url=http://evil.example/"}) {
        EXPECT_EQ(sign(other)->status, 400) << other;
        EXPECT_EQ(client.Get("/auth/desktop-login", {{"redirect", other}}, httplib::Headers())->status, 400)
            << other;
    }

    // The page of credits, for a browser that has no session yet.
    const auto refused = client.Get("/dashboard/billing");
    EXPECT_THAT(refused->body, HasSubstr("href=\"/auth/desktop-login?redirect=/dashboard/billing\""));
    const auto led = sign("/dashboard/billing");
    EXPECT_EQ(led->status, 303);
    EXPECT_EQ(led->get_header_value("Location"), "/dashboard/billing");
    const auto cookie = led->get_header_value("Set-Cookie");
    EXPECT_THAT(client.Get("/dashboard/billing", {{"Cookie", cookie.substr(0, cookie.find(';'))}})->body,
                HasSubstr(">1000</strong>"));
}

} // namespace
} // namespace velto::test
