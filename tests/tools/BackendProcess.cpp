#include "tools/BackendProcess.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace velto::test {

using nlohmann::json;

BackendProcess::BackendProcess(const std::filesystem::path& state, std::vector<std::string> options,
                               int port) {
    options.insert(options.begin(), {VELTO_BACKEND_PROGRAM, "--port", std::to_string(port), "--quiet",
                                     "--exit-with-stdin", "--state", state.string()});
    program_ = startPiped(options, STDOUT_FILENO);
    auto* lines = fdopen(program_.output.release(), "r");
    std::array<char, 200> line{};
    const bool read = fgets(line.data(), line.size(), lines) != nullptr;
    if (read) port_ = std::stoi(std::string(line.data()).substr(std::string("http://127.0.0.1:").size()));
    fclose(lines);
    if (!read) throw std::runtime_error("the backend did not print its address");
}

BackendProcess::~BackendProcess() {
    closeStdin();
    // Under a sanitizer the status also says what it found in the backend.
    const int status = program_.process > 0 ? wait() : 0;
    EXPECT_EQ(status, 0);
}

httplib::Client BackendProcess::client() const {
    httplib::Client client("127.0.0.1", port_);
    client.set_read_timeout(60);
    return client;
}

std::string BackendProcess::signIn(const std::string& email) const {
    auto http = client();
    const auto reply =
        http.Get("/auth/desktop-login", {{"email", email}, {"format", "text"}}, httplib::Headers());
    const std::string start = "velto://auth?token=";
    if (!reply || reply->body.substr(0, start.size()) != start)
        throw std::runtime_error("no callback address");
    return reply->body.substr(start.size());
}

Answer BackendProcess::post(const std::string& token, const std::string& body,
                            const httplib::Headers& more) const {
    auto headers = more;
    if (!token.empty()) headers.emplace("Authorization", "Bearer " + token);
    auto http = client();
    const auto reply = http.Post("/api/graphql", headers, body, "application/json");
    if (!reply) return {0, {}, json(json::value_t::discarded)};
    return {reply->status, reply->body, json::parse(reply->body, nullptr, false)};
}

Answer BackendProcess::graphql(const std::string& token, const std::string& document,
                               const json& input) const {
    json request{{"query", document}};
    if (!input.is_null()) request["variables"] = {{"input", input}};
    return post(token, request.dump());
}

int BackendProcess::credits(const std::string& token) const {
    return graphql(token, "{ creditBalance }").data().at("creditBalance");
}

void BackendProcess::signal(int number) const {
    // Of a process that has been waited for, the number would mean others.
    if (program_.process > 0) kill(program_.process, number);
}

void BackendProcess::closeStdin() {
    program_.input.reset();
}

int BackendProcess::wait() {
    int status = 0;
    waitpid(program_.process, &status, 0);
    program_.process = -1;
    return status;
}

} // namespace velto::test
