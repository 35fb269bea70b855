#include "platform/http/HttpClient.hpp"
#include "platform/RawServer.hpp"
#include "platform/http/Transfer.hpp"
#include "platform/http/URLError.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

namespace velto::http {
namespace {

namespace fs = std::filesystem;
using Code = URLError::Code;
using test::RawServer;
using test::TemporaryFolder;
using test::TestRuntime;

Request post(std::string url, std::string body = "{}") {
    Request request;
    request.url = std::move(url);
    request.method = "POST";
    request.body = std::move(body);
    return request;
}

Task<void> note(Transport& transport, Request request, std::optional<Code>& failure) {
    try {
        co_await transport.send(std::move(request));
    } catch (const URLError& error) {
        failure = error.code();
    }
}

std::optional<Code> failureOf(TestRuntime& runtime, Transport& transport, Request request) {
    std::optional<Code> failure;
    runtime.run(note(transport, std::move(request), failure));
    return failure;
}

TEST(HttpClient, DistinguishesTheFailuresOfTheWire) {
    struct Row {
        std::string reply;
        RawServer::Afterwards afterwards;
        std::string scheme;
        Code expected;
    };

    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string endless =
        ok + "Transfer-Encoding: chunked\r\n\r\n10000\r\n" + std::string(0x10000, 'x');
    using enum RawServer::Afterwards;
    const std::vector<Row> rows = {
        {"", closes, "http", Code::networkConnectionLost},
        {ok + "Content-Length: 100\r\n\r\nshort", closes, "http", Code::networkConnectionLost},
        {"SSH-2.0-OpenSSH\r\n", closes, "http", Code::badServerResponse},
        {ok + "Content-Length: 200000000\r\n\r\n", staysSilent, "http", Code::dataLengthExceedsMaximum},
        {endless, staysSilent, "http", Code::dataLengthExceedsMaximum},
        {ok + "\r\n", closes, "https", Code::secureConnectionFailed},
        {"", staysSilent, "http", Code::timedOut},
    };
    TestRuntime runtime;
    HttpClient client;
    for (const Row& row : rows) {
        const RawServer server(row.reply, row.afterwards);
        Request request = post(server.address(row.scheme));
        request.maximumBodySize = 0xffff;
        request.timeout = Seconds(row.expected == Code::timedOut ? 0.05 : 20);
        EXPECT_EQ(failureOf(runtime, client, request), row.expected) << row.reply.substr(0, 60) << row.scheme;
        EXPECT_EQ(server.requests(), 1) << "sent again: " << row.reply.substr(0, 60);
    }
}

TEST(HttpClient, SendsARequestOnceThoughItsConnectionWasKept) {
    for (const char* method : {"GET", "POST"}) {
        const RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
                               RawServer::Afterwards::answersOnce);
        TestRuntime runtime;
        HttpClient client;
        Request request = post(server.address());
        request.method = method;
        EXPECT_EQ(failureOf(runtime, client, request), std::nullopt);
        EXPECT_EQ(failureOf(runtime, client, request), Code::networkConnectionLost);
        EXPECT_EQ(server.requests(), 2) << method;
    }
}

/// Takes the place of whoever waits for a transfer.
class Outcome final : public Completion {
  public:
    explicit Outcome(std::optional<Code>& failure)
        : failure_(failure) {}

    void finish(std::exception_ptr failure, Response /*response*/) override {
        try {
            if (failure) std::rethrow_exception(failure);
        } catch (const URLError& error) {
            failure_ = error.code();
        }
    }

  private:
    std::optional<Code>& failure_;
};

/// A certificate with its key for an address, signed by `issuer` or by itself; the PEM file that holds both.
fs::path certificate(const TemporaryFolder& folder, const std::string& name, const std::string& address,
                     const fs::path& issuer = {}) {
    const fs::path file = folder / name, key = folder / (name + ".key");
    std::vector<std::string> command = {"openssl", "req", "-x509", "-nodes", "-subj", "/CN=" + name};
    command.insert(command.end(), {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-addext",
                                   "subjectAltName=IP:" + address, "-keyout", key, "-out", file});
    if (!issuer.empty()) command.insert(command.end(), {"-CA", issuer, "-CAkey", issuer});
    test::runProgram(command);
    return folder.write(name, test::readFile(file) + test::readFile(key));
}

TEST(HttpClient, TrustsACertificateOfAKnownAuthorityForThisHostOnly) {
    const TemporaryFolder folder;
    const fs::path authority = certificate(folder, "authority", "192.0.2.1");
    const fs::path selfSigned = certificate(folder, "self-signed", "127.0.0.1");
    const fs::path ours = certificate(folder, "ours", "127.0.0.1", authority);
    const fs::path anothers = certificate(folder, "anothers", "192.0.2.2", authority);
    const std::string reply = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    constexpr auto untrusted = Code::serverCertificateUntrusted;

    struct Row {
        fs::path served;
        std::optional<fs::path> trusted; ///< else what the machine trusts
        std::optional<Code> failure;
    };

    for (const Row& row : {Row{ours, authority, std::nullopt}, Row{anothers, authority, untrusted},
                           Row{selfSigned, authority, untrusted}, Row{selfSigned, std::nullopt, untrusted},
                           Row{ours, std::nullopt, untrusted}}) {
        const RawServer server(reply, RawServer::Afterwards::closes, row.served);
        std::optional<Code> failure;
        Transfer transfer(post(server.address("https"), "paid"), std::make_unique<Outcome>(failure));
        if (row.trusted) curl_easy_setopt(transfer.handle(), CURLOPT_CAINFO, row.trusted->c_str());
        transfer.finish(curl_easy_perform(transfer.handle()));
        EXPECT_EQ(failure, row.failure) << row.served;
        EXPECT_EQ(server.requests(), row.failure ? 0 : 1) << row.served;
    }
}

TEST(HttpClient, TakesABodyUpToItsLimitAndNoRedirect) {
    const std::string body(1000, 'x');
    const RawServer full("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + body);
    const RawServer moved("HTTP/1.1 302 Found\r\nLocation: " + full.address() +
                          "\r\nContent-Length: 0\r\n\r\n");
    TestRuntime runtime;
    HttpClient client;
    Request request = post(full.address());
    request.maximumBodySize = body.size();
    EXPECT_EQ(runtime.run(client.send(request)).body, body);
    EXPECT_EQ(runtime.run(client.send(post(moved.address()))).status, 302);
    EXPECT_EQ(full.requests(), 1);
}

TEST(HttpClient, RefusesBeforeTheNetwork) {
    const RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    std::vector<std::tuple<std::string, Header, Code>> rows = {
        {"ftp://127.0.0.1/", {"A", "b"}, Code::unsupportedURL},
        {server.address(), {"Authorization", std::string("Bearer a\0b", 10)}, Code::invalidHeader},
        {server.address(), {"A: b\r\nC", "d"}, Code::invalidHeader},
    };
    for (const std::string& url :
         std::vector<std::string>{"", "not a url", "/api/graphql", "file:///etc/passwd", "http:///path",
                                  server.address() + "\r\nX: y"})
        rows.push_back({url, {"A", "b"}, Code::badURL});
    for (const char* value : {"Bearer a\r\nX-Admin: 1", "Bearer a\n", "Bearer \x7f"})
        rows.push_back({server.address(), {"Authorization", value}, Code::invalidHeader});
    TestRuntime runtime;
    HttpClient client;
    for (const auto& [url, header, expected] : rows) {
        Request request = post(url);
        request.headers = {header};
        EXPECT_EQ(failureOf(runtime, client, request), expected) << url << " " << header.value;
    }
    EXPECT_EQ(server.requests(), 0);
}

TEST(HttpClient, HoldsNoThreadOfThePoolAndItsEndFailsWhatIsUnderWay) {
    constexpr std::size_t count = 12; // thrice the threads of the pool
    const RawServer server("", RawServer::Afterwards::staysSilent);
    TestRuntime runtime;
    std::vector<std::optional<Code>> onTheWire(count);
    std::optional<Code> justHandedOver;
    {
        HttpClient client;
        for (auto& failure : onTheWire)
            spawn(runtime.main(), note(client, post(server.address()), failure));
        runtime.runUntil([&] { return server.requests() == count; });
        spawn(runtime.main(), note(client, post(server.address()), justHandedOver));
        runtime.poll();
    }
    runtime.runUntil([&] {
        return justHandedOver && std::all_of(onTheWire.begin(), onTheWire.end(),
                                             [](const auto& failure) { return failure.has_value(); });
    });
    EXPECT_EQ(onTheWire, std::vector(count, std::optional(Code::cancelled)));
    EXPECT_EQ(justHandedOver, Code::cancelled);
}

TEST(HttpClient, MapsWhatCannotBeProvokedHere) {
    EXPECT_EQ(codeFor(CURLE_COULDNT_RESOLVE_HOST, 0, true), Code::cannotFindHost);
    EXPECT_EQ(codeFor(CURLE_COULDNT_RESOLVE_HOST, 0, false), Code::notConnectedToInternet);
    EXPECT_EQ(codeFor(CURLE_COULDNT_CONNECT, ENETUNREACH, true), Code::notConnectedToInternet);
    EXPECT_EQ(codeFor(CURLE_COULDNT_CONNECT, ECONNREFUSED, true), Code::cannotConnectToHost);
}

} // namespace
} // namespace velto::http
