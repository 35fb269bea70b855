#include "Server.hpp"

#include "Operations.hpp"
#include "Requests.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <sys/socket.h>

namespace velto::local {

using nlohmann::json;

namespace {

constexpr std::size_t threads = 16;
constexpr int ioTimeoutSeconds = 20;
constexpr const char* jsonType = "application/json";

/// Serialises with a replacement for what is not UTF-8, which would otherwise throw.
std::string dump(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void reply(httplib::Response& response, int status, const json& value) {
    response.status = status;
    response.set_content(dump(value), jsonType);
}

void sendThenClose(httplib::Response& response, std::size_t announced, std::string sent) {
    response.set_content_provider(
        announced, jsonType, [sent = std::move(sent)](std::size_t, std::size_t, httplib::DataSink& sink) {
            sink.write(sent.data(), sent.size());
            return false;
        });
}

/// Valid JSON of the announced size without holding it.
void sendHuge(httplib::Response& response, std::size_t size) {
    static const std::string block(64U << 10U, 'x');
    static const std::string head = R"({"data":{"padding":")", tail = R"("}})";
    response.set_content_provider(
        size, jsonType, [size](std::size_t offset, std::size_t, httplib::DataSink& sink) {
            if (offset < head.size()) return sink.write(head.data() + offset, head.size() - offset);
            const auto body = size - tail.size();
            if (offset < body) return sink.write(block.data(), std::min(block.size(), body - offset));
            return sink.write(tail.data() + (offset - body), size - offset);
        });
}

} // namespace

Server::Server(State& state, Faults& faults, ServerOptions options)
    : state_(state)
    , faults_(faults)
    , options_(options) {
    http_.new_task_queue = [] { return new httplib::ThreadPool(threads); };
    http_.set_keep_alive_max_count(1);
    http_.set_payload_max_length(bodyLimit);
    http_.set_read_timeout(ioTimeoutSeconds);
    http_.set_write_timeout(ioTimeoutSeconds);
    // The port is held alone: with SO_REUSEPORT two backends would share it unnoticed.
    http_.set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    http_.set_default_headers({{"Cache-Control", "no-store"},
                               {"X-Content-Type-Options", "nosniff"},
                               {"Referrer-Policy", "same-origin"},
                               {"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'; "
                                                           "form-action 'self'; frame-ancestors 'none'"}});
    http_.set_exception_handler([](const auto&, auto& response, std::exception_ptr failure) {
        fmt::print(stderr, "velto-backend: {}\n", describe(failure));
        reply(response, 500, errorReply("Internal server error"));
    });
    if (!options_.quiet)
        http_.set_logger([](const Request& request, const Response& response) {
            // The path without the query, which may hold a token.
            fmt::print(stderr, "{} {} {}\n", request.method, request.path, response.status);
        });
    route();
}

int Server::bind() {
    constexpr const char* loopback = "127.0.0.1";
    if (options_.port == 0) {
        const int port = http_.bind_to_any_port(loopback);
        if (port > 0) return port;
    } else if (http_.bind_to_port(loopback, options_.port)) {
        return options_.port;
    }
    throw SystemError(errno, "listen on", fmt::format("{}:{}", loopback, options_.port));
}

bool Server::run() {
    http_.listen_after_bind();
    const std::lock_guard lock(mutex_);
    finished_ = true;
    stopping_.notify_all();
    return stopped_;
}

void Server::stop() {
    std::unique_lock lock(mutex_);
    stopped_ = true;
    stopping_.notify_all();
    // A stop before the accept loop has begun is lost, so it is said again until run() has ended.
    while (!finished_) {
        http_.stop();
        stopping_.wait_for(lock, std::chrono::milliseconds(10));
    }
}

void Server::wait(std::int64_t milliseconds) {
    std::unique_lock lock(mutex_);
    stopping_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return stopped_; });
}

std::optional<Account> Server::bearer(const Request& request) {
    constexpr std::string_view scheme = "Bearer ";
    const auto header = request.get_header_value("Authorization");
    if (request.get_header_value_count("Authorization") != 1 || !header.starts_with(scheme))
        return std::nullopt;
    return state_.accountOf(header.substr(scheme.size()));
}

void Server::graphql(const Request& request, const std::string& body, Response& response) {
    const auto account = bearer(request);
    if (!account) return reply(response, 401, errorReply("Unauthorized"));
    try {
        answerCall(*account, parseBoundedJson(body), response);
    } catch (const GraphQLError& error) {
        reply(response, 200, errorReply(error.errorDescription()));
    }
}

void Server::answerCall(const Account& account, const json& request, Response& response) {
    const auto call = prepareCall(request);
    const auto active = faults_.take(call.productName);
    if (active.delayMilliseconds > 0) wait(active.delayMilliseconds);
    if (active.fault && applyTransportFault(*active.fault, response)) return;

    // The work is done before the reply goes wrong, as it would be beyond a broken line.
    const json data{{"data", runCall(call, state_, account, active.fault)}};
    const auto kind = active.fault ? std::optional(active.fault->kind) : std::nullopt;
    const auto text = dump(data);
    reply(response, kind == FaultKind::wrongStatus ? static_cast<int>(active.fault->number) : 200, data);
    if (kind == FaultKind::malformed) response.set_content(text.substr(0, text.size() / 2), jsonType);
    if (kind == FaultKind::drop) {
        response.body.clear();
        sendThenClose(response, text.size(), text.substr(0, text.size() / 2));
    }
}

bool Server::applyTransportFault(const Fault& fault, Response& response) {
    switch (fault.kind) {
    case FaultKind::unauthorized:
        reply(response, 401, errorReply("Unauthorized"));
        return true;
    case FaultKind::serverError:
        reply(response, 500, errorReply("Internal server error"));
        return true;
    case FaultKind::graphqlError:
        reply(response, 200, errorReply(fault.text.empty() ? "Something went wrong" : fault.text));
        return true;
    case FaultKind::huge:
        response.status = 200;
        sendHuge(response, static_cast<std::size_t>(fault.number) << 20U);
        return true;
    default:
        return false;
    }
}

void Server::changeFaults(const Request&, const std::string& body, Response& response) {
    try {
        const auto request = json::parse(body);
        std::vector<Fault> faults;
        for (const auto& text : request.at("faults"))
            faults.push_back(parseFault(text.get<std::string>()));
        faults_.set(std::move(faults), request.value("on", "TagTracks"));
        reply(response, 200, {{"success", true}});
    } catch (const FaultError& error) {
        reply(response, 400, errorReply(error.errorDescription()));
    } catch (const json::exception&) {
        reply(response, 400,
              errorReply("Expected {\"faults\": [\"KIND[:ARG][@N]\"], \"on\": \"TagTracks\"}"));
    }
}

} // namespace velto::local
