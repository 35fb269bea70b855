#pragma once

#include "app/LocalBackend.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/http/HttpClient.hpp"

namespace velto {

/// Sends to the program's own backend. A request waits while that is being started again; one that was under
/// way when it died fails with LocalBackendError, and is not sent again: it may have been paid for.
/// Everything referred to outlives it.
class LocalBackendTransport final : public http::Transport {
  public:
    LocalBackendTransport(http::Transport& wire, LocalBackend& backend, Executors executors);

    Task<http::Response> send(http::Request request) override;

  private:
    http::Transport& wire_;
    LocalBackend& backend_;
    Executors executors_;
};

} // namespace velto
