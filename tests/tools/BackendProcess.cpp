#include "tools/BackendProcess.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace velto::test {

using nlohmann::json;

BackendProcess::BackendProcess(const std::filesystem::path& state, std::vector<std::string> options) {
    std::array<int, 2> input{}, output{};
    if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    options.insert(options.begin(), {VELTO_BACKEND_PROGRAM, "--port", "0", "--quiet", "--exit-with-stdin",
                                     "--state", state.string()});
    std::vector<char*> arguments;
    for (auto& option : options)
        arguments.push_back(option.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    const int failure = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    stdin_ = input[1];
    auto* lines = fdopen(output[0], "r");
    std::array<char, 200> line{};
    const bool read = failure == 0 && fgets(line.data(), line.size(), lines) != nullptr;
    if (read) port_ = std::stoi(std::string(line.data()).substr(std::string("http://127.0.0.1:").size()));
    fclose(lines);
    if (!read) throw std::runtime_error("the backend did not print its address");
}

BackendProcess::~BackendProcess() {
    closeStdin();
    // Under a sanitizer the status also tells of what it found in the backend.
    const int status = process_ > 0 ? wait() : 0;
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
    if (process_ > 0) kill(process_, number);
}

void BackendProcess::closeStdin() {
    if (stdin_ >= 0) close(stdin_);
    stdin_ = -1;
}

int BackendProcess::wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return status;
}

} // namespace velto::test
