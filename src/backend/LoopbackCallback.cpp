#include "backend/LoopbackCallback.hpp"

#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"

#include <fmt/format.h>
#include <httplib.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace velto {

namespace {

using std::chrono::steady_clock;

constexpr const char* loopback = "127.0.0.1";
constexpr const char* path = "/callback";
/// Browsers open connections ahead of their requests; one such must not keep the request out.
constexpr std::size_t threads = 4;
constexpr std::size_t longestBody = 1024;
constexpr std::size_t longestToken = 4096;
constexpr int ioTimeoutSeconds = 5;
constexpr int idleSeconds = 1; ///< until a request begins; the end of the listener waits for it
constexpr int mostRefusals = 20;
constexpr std::chrono::minutes lifetime{10};

std::string randomState() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw SystemError(errno, "read", "random bytes");
    std::string text;
    for (const unsigned char byte : bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}

std::string page(const std::string& text) {
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta "
           "charset=\"utf-8\"><title>Velto</title></head><body><p>" +
           text + "</p></body></html>\n";
}

} // namespace

struct LoopbackCallback::Listener {
    explicit Listener(Taker taker)
        : take(std::move(taker))
        , state(randomState()) {
        server.new_task_queue = [] { return new httplib::ThreadPool(threads); };
        server.set_keep_alive_max_count(1);
        server.set_keep_alive_timeout(idleSeconds);
        server.set_payload_max_length(longestBody);
        server.set_read_timeout(ioTimeoutSeconds);
        server.set_write_timeout(ioTimeoutSeconds);
        // The port is held alone: with SO_REUSEPORT another program could get the token.
        server.set_socket_options([](socket_t) {});
        server.set_default_headers({{"Cache-Control", "no-store"},
                                    {"Referrer-Policy", "no-referrer"},
                                    {"X-Content-Type-Options", "nosniff"},
                                    {"Content-Security-Policy", "default-src 'none'"}});
        server.Get(path, [this](const httplib::Request& request, httplib::Response& response) {
            answer(request, response);
        });
        const int port = server.bind_to_any_port(loopback);
        if (port <= 0) throw SystemError(errno, "listen on", loopback);
        address = fmt::format("http://{}:{}{}?state={}", loopback, port, path, state);
        thread = std::thread([this] { run(); });
    }

    ~Listener() {
        {
            std::unique_lock lock(mutex);
            // A stop before the accept loop has begun is lost, so it is said again until the loop has ended.
            while (!isFinished) {
                server.stop();
                finished.wait_for(lock, std::chrono::milliseconds(10));
            }
        }
        thread.join();
    }

    void run() {
        server.listen_after_bind();
        const std::lock_guard lock(mutex);
        isFinished = true;
        finished.notify_all();
    }

    void answer(const httplib::Request& request, httplib::Response& response) {
        const std::string token = request.get_param_value("token");
        const bool isTaken = isRight(request, token);
        log::line(isTaken ? "🔗 [SIGN-IN] The browser brought the token back"
                          : "⚠️ [SIGN-IN] A request to the sign-in's listener was refused");
        response.status = isTaken ? 200 : 403;
        response.set_content(page(isTaken ? "Velto has the sign-in. You can close this page."
                                          : "This sign-in is over or is not Velto's. Start it anew."),
                             "text/html; charset=utf-8");
        if (isTaken) take(token);
    }

    bool isRight(const httplib::Request& request, const std::string& token) {
        const std::lock_guard lock(takingMutex);
        if (isOver || refusals == mostRefusals || steady_clock::now() > end) return false;
        const bool isRight = request.get_param_value_count("state") == 1 &&
                             request.get_param_value("state") == state && !token.empty() &&
                             token.size() <= longestToken;
        if (isRight)
            isOver = true;
        else
            ++refusals;
        return isRight;
    }

    Taker take;
    std::string state;
    std::string address;
    httplib::Server server;
    std::thread thread;

    std::mutex mutex; ///< of the accept loop's end
    std::condition_variable finished;
    bool isFinished = false;

    std::mutex takingMutex;
    bool isOver = false;
    int refusals = 0;
    steady_clock::time_point end = steady_clock::now() + lifetime;
};

LoopbackCallback::LoopbackCallback(Taker take)
    : listener_(std::make_unique<Listener>(std::move(take))) {}

LoopbackCallback::~LoopbackCallback() = default;

const std::string& LoopbackCallback::returnAddress() const {
    return listener_->address;
}

} // namespace velto
