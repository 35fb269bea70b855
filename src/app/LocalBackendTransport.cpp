#include "app/LocalBackendTransport.hpp"

#include "platform/http/URLError.hpp"

#include <exception>
#include <utility>

namespace velto {

LocalBackendTransport::LocalBackendTransport(http::Transport& wire, LocalBackend& backend,
                                             Executors executors)
    : wire_(wire)
    , backend_(backend)
    , executors_(std::move(executors)) {}

Task<http::Response> LocalBackendTransport::send(http::Request request) {
    const auto waiting = [this] { return backend_.waitUntilRunning(); };
    const int start = co_await offload(executors_, waiting);
    std::exception_ptr failure;
    try {
        co_return co_await wire_.send(std::move(request));
    } catch (const http::URLError& error) {
        failure = std::current_exception();
        using Code = http::URLError::Code;
        const bool mayBeDead = error.code() == Code::cannotConnectToHost ||
                               error.code() == Code::networkConnectionLost ||
                               error.code() == Code::badServerResponse;
        if (!mayBeDead) throw;
    }
    const auto asking = [this, start] { return backend_.failureAfter(start); };
    const std::exception_ptr death = co_await offload(executors_, asking);
    std::rethrow_exception(death ? death : failure);
}

} // namespace velto
