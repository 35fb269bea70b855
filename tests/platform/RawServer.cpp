#include "platform/RawServer.hpp"

#include <asio/buffer.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/ssl/stream.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>

#include <array>
#include <utility>

namespace velto::test {

using asio::ip::tcp;

RawServer::RawServer(std::string reply, Afterwards afterwards, const std::filesystem::path& certificate)
    : reply_(std::move(reply))
    , afterwards_(afterwards)
    , acceptor_(context_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
    if (!certificate.empty()) {
        security_.emplace(asio::ssl::context::tls_server);
        security_->use_certificate_chain_file(certificate.string());
        security_->use_private_key_file(certificate.string(), asio::ssl::context::pem);
    }
    asio::co_spawn(context_, serve(), asio::detached);
    thread_ = std::thread([this] { context_.run(); });
}

RawServer::~RawServer() {
    context_.stop();
    thread_.join();
}

std::string RawServer::address(const std::string& scheme) const {
    return scheme + "://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/api";
}

asio::awaitable<void> RawServer::serve() {
    while (true) {
        tcp::socket socket = co_await acceptor_.async_accept(asio::use_awaitable);
        asio::co_spawn(context_, serveConnection(std::move(socket)), asio::detached);
    }
}

asio::awaitable<void> RawServer::serveConnection(tcp::socket socket) {
    if (!security_) {
        co_await answer(socket);
        co_return;
    }
    asio::ssl::stream<tcp::socket> stream(std::move(socket), *security_);
    co_await stream.async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
    co_await answer(stream);
}

/// Ends, and with it the connection, by the exception of the read as well.
template <typename Stream>
asio::awaitable<void> RawServer::answer(Stream& stream) {
    do {
        std::string head;
        std::array<char, 4096> block{};
        // A TLS greeting starts with byte 22 and has no blank line.
        while (head.find("\r\n\r\n") == std::string::npos && !head.starts_with('\x16')) {
            const std::size_t count =
                co_await stream.async_read_some(asio::buffer(block), asio::use_awaitable);
            head.append(block.data(), count);
        }
        const bool isFirst = requests_++ == 0;
        if (afterwards_ == Afterwards::answersOnce && !isFirst) co_return;
        co_await asio::async_write(stream, asio::buffer(reply_), asio::use_awaitable);
    } while (afterwards_ != Afterwards::closes);
}

} // namespace velto::test
