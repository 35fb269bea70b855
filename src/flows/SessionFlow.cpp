#include "flows/SessionFlow.hpp"

#include "backend/AuthenticationManager.hpp"
#include "flows/LibrariesFlow.hpp"

namespace velto {

void SessionFlow::setManager(std::shared_ptr<AuthenticationManager> manager) {
    manager_ = std::move(manager);
    subscription_ = {};
    if (!manager_) return;
    take(manager_->authenticationState());
    subscription_ =
        manager_->authenticationState().subscribe([this](const AuthenticationState& state) { take(state); });
}

void SessionFlow::take(const AuthenticationState& state) {
    context_.state.userSession = UserSession::from(state);
    context_.state.isAuthenticating = state.isAuthenticating();
}

Task<void> SessionFlow::refreshCredits() {
    const auto manager = manager_;
    if (!manager) co_return;
    try {
        co_await manager->fetchUserProfile();
        take(manager->authenticationState());
    } catch (const std::exception& error) {
        context_.state.errorMessage = "Failed to refresh credits: " + describe(error);
    }
}

void SessionFlow::startRefreshingCredits() {
    if (manager_) context_.background.start(creditsRefreshed(context_.owner.lock(), this));
}

Task<void> SessionFlow::creditsRefreshed(std::shared_ptr<void> owner, SessionFlow* flow) {
    const auto alive = std::move(owner); // nobody else may hold the state object by the first step
    co_await flow->refreshCredits();
}

Task<void> SessionFlow::signOut() {
    const auto manager = manager_;
    if (!manager) co_return;
    co_await manager->signOut();
    // A token that could not be deleted leaves the session, and so the data, as they were.
    if (!manager->authenticationState().get().isUnauthenticated()) co_return;
    co_await libraries_.clearLocalData();
}

} // namespace velto
