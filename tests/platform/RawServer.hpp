#pragma once

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ssl/context.hpp>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

namespace velto::test {

/// A server on loopback that answers each request with the same bytes, HTTP or not, once the request's head
/// has come. It serves any number of connections at once, on a thread of its own.
class RawServer {
  public:
    enum class Afterwards {
        closes,
        staysSilent,
        answersOnce, ///< keeps the connection; closes the one on which any later request comes, unanswered
    };

    /// Over TLS if there is a `certificate`: a PEM file that holds its key too.
    explicit RawServer(std::string reply, Afterwards afterwards = Afterwards::closes,
                       const std::filesystem::path& certificate = {});
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] std::string address(const std::string& scheme = "http") const;

    /// Requests whose head has come, or a TLS greeting if the server speaks plain HTTP.
    [[nodiscard]] int requests() const { return requests_; }

  private:
    asio::awaitable<void> serve();
    asio::awaitable<void> serveConnection(asio::ip::tcp::socket socket);
    template <typename Stream>
    asio::awaitable<void> answer(Stream& stream);

    std::string reply_;
    Afterwards afterwards_;
    asio::io_context context_;
    asio::ip::tcp::acceptor acceptor_;
    std::optional<asio::ssl::context> security_;
    std::atomic<int> requests_ = 0;
    std::thread thread_;
};

} // namespace velto::test
