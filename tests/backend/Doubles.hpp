#pragma once

#include "backend/Browser.hpp"
#include "backend/DefaultGraphQLClient.hpp"
#include "platform/http/HttpClient.hpp"
#include "platform/http/URLError.hpp"
#include "platform/keyring/KeyringService.hpp"
#include "support/RecordingCrashReporter.hpp"

#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace velto::test {

/// Replies with what a test has lined up, one after another; a URLError if that was lined up.
class ScriptedTransport final : public http::Transport {
  public:
    void reply(std::optional<int> status, std::string body) {
        script_.push_back({nullptr, {status, std::move(body)}});
    }

    void fail(http::URLError::Code code) {
        script_.push_back({std::make_exception_ptr(http::URLError(code)), {}});
    }

    Task<http::Response> send(http::Request request) override {
        requests.push_back(std::move(request));
        const std::size_t index = requests.size() - 1;
        if (const auto meanwhile = std::exchange(beforeReply, nullptr)) co_await meanwhile();
        repliedOn = std::this_thread::get_id();
        if (script_.empty()) throw std::logic_error("a request that nobody expected");
        auto [failure, response] = std::move(script_.front());
        script_.pop_front();
        if (failure) std::rethrow_exception(failure);
        if (adjust && !response.body.empty()) response.body = adjust(requests[index], response.body);
        co_return response;
    }

    std::function<Task<void>()> beforeReply; ///< what happens while the next request is under way
    std::function<std::string(const http::Request&, const std::string& body)>
        adjust; ///< a reply to its request
    std::vector<http::Request> requests;
    std::thread::id repliedOn; ///< where the caller goes on with the latest reply

  private:
    std::deque<std::pair<std::exception_ptr, http::Response>> script_;
};

/// The token in memory; fails on demand.
class MemoryKeyring final : public KeyringService {
  public:
    void saveToken(const std::string& text) override {
        const std::lock_guard lock(mutex_);
        if (failsToSave) throw KeychainError(KeychainError::Case::unableToSave);
        token_ = text;
    }

    std::optional<std::string> retrieveToken() override {
        const std::lock_guard lock(mutex_);
        if (failsToRetrieve) throw KeychainError(KeychainError::Case::unableToRetrieve);
        return token_;
    }

    void deleteToken() override {
        if (beforeDelete) beforeDelete();
        const std::lock_guard lock(mutex_);
        if (failsToDelete) throw KeychainError(KeychainError::Case::unableToDelete);
        token_.reset();
    }

    bool failsToSave = false;
    bool failsToRetrieve = false;
    bool failsToDelete = false;
    std::function<void()> beforeDelete; ///< on the pool

  private:
    std::mutex mutex_;
    std::optional<std::string> token_;
};

class RecordingBrowser final : public Browser {
  public:
    void openURL(const std::string& url) override { opened.push_back(url); }

    void activateApplication() override {}

    std::vector<std::string> opened;
};

} // namespace velto::test
