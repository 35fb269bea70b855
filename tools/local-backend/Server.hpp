#pragma once

#include "Faults.hpp"
#include "State.hpp"

#include <httplib.h>
#include <nlohmann/json_fwd.hpp>

#include <condition_variable>
#include <mutex>

namespace velto::local {

struct ServerOptions {
    int port = 0;         ///< 0: a free one.
    bool control = false; ///< Faults may be changed through POST /control/faults.
    bool quiet = false;   ///< No line a request on standard error.
};

/// The HTTP side, on 127.0.0.1 only: /api/graphql, the sign-in pages, the dashboard pages. A fixed number of
/// threads; one request a connection, so that neither an idle client holds a thread nor the rest of a refused
/// body is taken for a request.
class Server {
  public:
    /// Longest request, in bytes: some forty times a sync of 500 tracks with long texts.
    static constexpr std::size_t bodyLimit = 64U << 20U;

    /// Both outlive the server.
    Server(State& state, Faults& faults, ServerOptions options);

    /// The port that it now holds. Fails with Error.
    int bind();
    /// Serves until stop(); every request under way is answered first. False if it ended by itself,
    /// because the socket failed.
    bool run();
    /// From any thread, also before run(): then run() returns at once.
    void stop();

  private:
    using Request = httplib::Request;
    using Response = httplib::Response;
    using Handler = void (Server::*)(const Request&, const std::string& body, Response&);

    void route();
    void get(const char* path, Handler handler);
    void post(const char* path, Handler handler, std::size_t limit);
    void refuseOtherMethods();

    void graphql(const Request&, const std::string& body, Response&);
    void answerCall(const Account& account, const nlohmann::json& request, Response&);
    bool applyTransportFault(const Fault& fault, Response&);
    void signInForm(const Request&, const std::string& body, Response&);
    void signIn(const Request&, const std::string& body, Response&);
    void billing(const Request&, const std::string& body, Response&);
    void buyCredits(const Request&, const std::string& body, Response&);
    void settings(const Request&, const std::string& body, Response&);
    void saveSettings(const Request&, const std::string& body, Response&);
    void changeFaults(const Request&, const std::string& body, Response&);

    [[nodiscard]] std::optional<Account> bearer(const Request& request);
    /// The account of the page's session; otherwise the response says to sign in.
    [[nodiscard]] std::optional<Account> session(const Request& request, Response& response);
    /// Waits for a "slow" fault, but not beyond stop().
    void wait(std::int64_t milliseconds);

    State& state_;
    Faults& faults_;
    ServerOptions options_;
    httplib::Server http_;
    std::mutex mutex_;
    std::condition_variable stopping_;
    bool stopped_ = false;
    bool finished_ = false;
};

} // namespace velto::local
