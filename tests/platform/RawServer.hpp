#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace velto::test {

/// A server on loopback that answers every connection with the same bytes, HTTP or not, once a request's head
/// has come (or at once where it speaks first).
class RawServer {
  public:
    enum class Afterwards { closes, staysSilent };

    explicit RawServer(std::string reply, Afterwards afterwards = Afterwards::closes);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] std::string address(const std::string& scheme = "http") const;

    /// Connections whose request has come.
    [[nodiscard]] int requests() const { return requests_; }

  private:
    void serve();
    void answer(asio::ip::tcp::socket& socket);

    std::string reply_;
    Afterwards afterwards_;
    asio::io_context context_;
    asio::ip::tcp::acceptor acceptor_;
    std::vector<asio::ip::tcp::socket> held_;
    std::atomic<int> requests_ = 0;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

} // namespace velto::test
