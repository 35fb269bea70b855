#include "platform/RawServer.hpp"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <array>
#include <utility>

namespace velto::test {

using asio::ip::tcp;

RawServer::RawServer(std::string reply, Afterwards afterwards)
    : reply_(std::move(reply))
    , afterwards_(afterwards)
    , acceptor_(context_, tcp::endpoint(asio::ip::address_v4::loopback(), 0))
    , thread_([this] { serve(); }) {}

RawServer::~RawServer() {
    stopping_ = true;
    asio::error_code ignored;
    tcp::socket wake(context_);
    wake.connect(acceptor_.local_endpoint(), ignored);
    thread_.join();
}

std::string RawServer::address(const std::string& scheme) const {
    return scheme + "://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/api";
}

void RawServer::serve() {
    while (true) {
        tcp::socket socket(context_);
        asio::error_code failure;
        acceptor_.accept(socket, failure);
        if (stopping_ || failure) return;
        answer(socket);
        if (afterwards_ == Afterwards::staysSilent) held_.push_back(std::move(socket));
    }
}

void RawServer::answer(tcp::socket& socket) {
    std::string head;
    std::array<char, 4096> block{};
    asio::error_code failure;
    // A TLS greeting starts with byte 22 and has no blank line.
    while (!failure && head.find("\r\n\r\n") == std::string::npos && !head.starts_with('\x16')) {
        const std::size_t count = socket.read_some(asio::buffer(block), failure);
        head.append(block.data(), count);
    }
    ++requests_;
    asio::write(socket, asio::buffer(reply_), failure);
}

} // namespace velto::test
