#pragma once

#include "platform/core/Error.hpp"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::local {

/// A fault's text that says nothing known; for the command line and the control page.
class FaultError : public Error {
  public:
    using Error::Error;
};

enum class FaultKind {
    rateLimit,
    unauthorized,
    serverError,
    slow,
    drop,
    malformed,
    huge,
    wrongStatus,
    graphqlError,
    partial,
    insufficientCredits,
};

struct Fault {
    FaultKind kind = FaultKind::serverError;
    /// The number after the colon (ms, MB, a status) or the kind's usual one.
    std::int64_t number = 0;
    /// The text after the colon of graphql-error.
    std::string text;
    /// Requests left that it hits; nothing: all.
    std::optional<std::int64_t> left;
};

/// "KIND[:ARG][@N]", e.g. "rate-limit:2500@3". Fails with FaultError.
[[nodiscard]] Fault parseFault(std::string_view text);

struct ActiveFaults {
    std::int64_t delayMilliseconds = 0; ///< Of "slow", which goes together with any other fault.
    std::optional<Fault> fault;
};

/// The faults to commit, shared by all requests; any thread.
class Faults {
  public:
    /// `operation`: the one that they hit, "TagTracks" or "GetUserAndDefaults" and the like; "all" for each.
    void set(std::vector<Fault> faults, std::string operation);

    /// What hits this request; counts it. The first fault with requests left, and a "slow" beside it.
    [[nodiscard]] ActiveFaults take(std::string_view operation);

  private:
    std::mutex mutex_;
    std::vector<Fault> faults_;
    std::string operation_ = "TagTracks";
};

} // namespace velto::local
