#pragma once

#include "flows/FlowContext.hpp"

#include <memory>

namespace velto {

class AuthenticationManager;
class AuthenticationState;
class LibrariesFlow;

/// Who is signed in. Writes userSession and isAuthenticating, as the authentication manager says.
class SessionFlow {
  public:
    SessionFlow(const FlowContext& context, LibrariesFlow& libraries)
        : context_(context)
        , libraries_(libraries) {}

    /// Follows that manager from now on.
    void setManager(std::shared_ptr<AuthenticationManager> manager);

    /// Asks for the balance anew; a failure is shown.
    Task<void> refreshCredits();
    /// The same, in the background: it is owed to the user even if the state object goes.
    void startRefreshingCredits();

    /// Signs out and clears the local data. A token that cannot be deleted leaves both as they are.
    Task<void> signOut();

  private:
    static Task<void> creditsRefreshed(std::shared_ptr<void> owner, SessionFlow* flow);
    void take(const AuthenticationState& state);

    FlowContext context_;
    LibrariesFlow& libraries_;
    std::shared_ptr<AuthenticationManager> manager_;
    Subscription subscription_;
};

} // namespace velto
