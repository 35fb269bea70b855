#pragma once

#include "support/PipedProgram.hpp"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velto::test {

struct Answer {
    int status = 0; ///< 0: no whole answer came.
    std::string text;
    nlohmann::json json; ///< Discarded if the text is not JSON.

    [[nodiscard]] const nlohmann::json& data() const { return json.at("data"); }

    [[nodiscard]] std::string error() const { return json.at("errors").at(0).at("message"); }
};

/// The built local backend as a child process. It ends with its standard input.
class BackendProcess {
  public:
    /// Port 0 is a free one.
    explicit BackendProcess(const std::filesystem::path& state, std::vector<std::string> options = {},
                            int port = 0);
    /// Closes its standard input and waits for it; the test fails if it does not end well.
    ~BackendProcess();
    BackendProcess(const BackendProcess&) = delete;
    BackendProcess& operator=(const BackendProcess&) = delete;

    [[nodiscard]] int port() const { return port_; }

    [[nodiscard]] httplib::Client client() const;

    /// Signs in without a browser; the token.
    [[nodiscard]] std::string signIn(const std::string& email) const;
    [[nodiscard]] Answer post(const std::string& token, const std::string& body,
                              const httplib::Headers& more = {}) const;
    [[nodiscard]] Answer graphql(const std::string& token, const std::string& document,
                                 const nlohmann::json& input = nullptr) const;
    [[nodiscard]] int credits(const std::string& token) const;

    void signal(int number) const;
    void closeStdin();
    /// Its wait status, once it has ended.
    int wait();

  private:
    PipedProgram program_;
    int port_ = 0;
};

} // namespace velto::test
