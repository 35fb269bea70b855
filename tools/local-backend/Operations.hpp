#pragma once

#include "Faults.hpp"
#include "Schema.hpp"
#include "State.hpp"

namespace velto::local {

/// A request that has been read and checked against the schema; nothing is done yet.
struct Call {
    OperationDefinition operation;
    nlohmann::json variables;
    /// The product's name for it: "TagTracks", "GetUserAndDefaults", by the first root field.
    std::string productName;
};

/// Reads {"query", "variables", "operationName"}. Fails with GraphQLError.
[[nodiscard]] Call prepareCall(const nlohmann::json& request);

/// Does what the call asks for this account; the reply's `data`. `fault` is one that shows in the answer of
/// the operation itself (rate limit, partial, too few credits). Fails with GraphQLError or DatabaseError.
[[nodiscard]] nlohmann::json runCall(const Call& call, State& state, const Account& account,
                                     const std::optional<Fault>& fault);

/// {"errors": [{"message": ...}]}
[[nodiscard]] nlohmann::json errorReply(const std::string& message);

} // namespace velto::local
