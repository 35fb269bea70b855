#pragma once

#include "platform/concurrency/Task.hpp"
#include "platform/core/Date.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velto::http {

struct Header {
    std::string name;
    std::string value;
};

struct Request {
    std::string url;
    std::string method = "GET";
    std::vector<Header> headers;
    std::string body;
    /// For the whole exchange, from the look-up of the name to the last byte.
    Seconds timeout{60};
    /// A longer reply fails with dataLengthExceedsMaximum, and no more than this much of it is held.
    std::size_t maximumBodySize = std::size_t{32} << 20;
};

struct Response {
    /// The HTTP status; absent if what came is not an HTTP response.
    std::optional<int> status;
    std::string body;
};

/// Sends a request and waits for body and status.
class Transport {
  public:
    virtual ~Transport() = default;

    /// Comes back on the caller's executor. Throws URLError; a status other than 200 is not a failure here.
    /// Any thread may call, any number of times at once.
    virtual Task<Response> send(Request request) = 0;
};

/// HTTP and HTTPS over libcurl on one thread of its own: waiting requests hold no thread of the task pool.
/// Certificates are verified; a redirect is a status like any other and is not followed. Proxies come from
/// the environment, never for loopback. A request goes out once, on a connection of its own: nothing is sent
/// again without the caller's knowledge. Destruction fails every request under way with `cancelled`; the
/// executors of its callers must outlive the client.
class HttpClient final : public Transport {
  public:
    HttpClient();
    ~HttpClient() override;
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// A URL that does not parse fails with `badURL`, a scheme other than http and https with
    /// `unsupportedURL`, a header with a control character in it with `invalidHeader`: none of these reaches
    /// the network.
    Task<Response> send(Request request) override;

  private:
    class Worker;
    std::unique_ptr<Worker> worker_;
};

} // namespace velto::http
