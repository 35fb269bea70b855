#pragma once

#include <functional>
#include <memory>
#include <string>

namespace velto {

/// Takes the callback of one sign-in, made in a browser on this computer: a listener on 127.0.0.1, on a free
/// port, whose address the sign-in page leads back to with the token. Requests that do not bring the random
/// state of that address back are refused; so is everything after the first token, after 20 refusals or ten
/// minutes, and whatever is larger than a token's request. Whoever signs in can always paste the link
/// instead.
class LoopbackCallback {
  public:
    /// Gets the token, at most once, on a thread of the listener's.
    using Taker = std::function<void(std::string token)>;

    /// Listens from now on. Throws SystemError.
    explicit LoopbackCallback(Taker take);
    /// Blocks for a request under way, a second for an idle connection: off the main actor.
    ~LoopbackCallback();
    LoopbackCallback(const LoopbackCallback&) = delete;
    LoopbackCallback& operator=(const LoopbackCallback&) = delete;

    /// "http://127.0.0.1:PORT/callback?state=STATE"; the page adds "&token=TOKEN".
    [[nodiscard]] const std::string& returnAddress() const;

  private:
    struct Listener;
    std::unique_ptr<Listener> listener_;
};

} // namespace velto
