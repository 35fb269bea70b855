#pragma once

#include "backend/GraphQLClient.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/http/HttpClient.hpp"
#include "platform/keyring/KeyringService.hpp"
#include "platform/log/CrashReporter.hpp"

#include <functional>
#include <optional>
#include <string>

namespace velto {

/// Gives the current token; absent if there is none or it cannot be read. Any thread; never throws.
using TokenSource = std::function<Task<std::optional<std::string>>()>;

/// Reads the token from the store on the task pool; every failure of the store is an absent token. The store
/// must outlive the source.
[[nodiscard]] TokenSource keyringTokenSource(KeyringService& keyring, Executors executors);

/// GraphQL over HTTP: one POST an operation, with the token fetched anew each time. It holds no session,
/// never retries and never signs out. Immutable; transport and crash reporter must outlive it.
class DefaultGraphQLClient final : public GraphQLClient {
  public:
    /// `endpoint` is the absolute URL of the backend, with its path "/api/graphql".
    DefaultGraphQLClient(std::string endpoint, TokenSource getToken, http::Transport& transport,
                         CrashReporter& crashReporter);

    Task<void> perform(std::string document, GraphQLVariables variables, ResponseType type) override;

  private:
    Task<std::string> reply(std::string document, GraphQLVariables variables);
    void decodeReply(const std::string& body, const ResponseType& type) const;

    std::string endpoint_;
    TokenSource getToken_;
    http::Transport& transport_;
    CrashReporter& crashReporter_;
};

} // namespace velto
