#pragma once

#include "platform/concurrency/Task.hpp"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace velto {

namespace json {
class Decoder;
}

/// The variables of an operation: a JSON object, or null if the operation has none.
using GraphQLVariables = std::shared_ptr<const nlohmann::json>;

/// Sends a GraphQL document and decodes the reply's data. Any thread may call, any number of times at once;
/// the result comes on the caller's executor.
class GraphQLClient {
  public:
    virtual ~GraphQLClient() = default;

    /// T is a response type: it has `typeName` and `static T decode(const json::Decoder&)`. Throws
    /// GraphQLClientError, and http::URLError as it is if the transport failed.
    template <typename T>
    Task<T> execute(std::string document, GraphQLVariables variables = nullptr) {
        std::optional<T> data;
        ResponseType type{T::typeName, [&data](const json::Decoder& from) { data.emplace(T::decode(from)); }};
        co_await perform(std::move(document), std::move(variables), std::move(type));
        co_return std::move(*data);
    }

    struct ResponseType {
        std::string_view name;
        /// Takes the reply's data; called at most once, before `perform` ends without a failure.
        std::function<void(const json::Decoder&)> decode;
    };

    /// What implementations provide: `execute` with the response type erased.
    virtual Task<void> perform(std::string document, GraphQLVariables variables, ResponseType type) = 0;
};

} // namespace velto
