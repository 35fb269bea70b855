#pragma once

#include "platform/http/HttpClient.hpp"
#include "platform/http/URLError.hpp"

#include <curl/curl.h>

#include <exception>
#include <memory>

namespace velto::http {

/// Hands an outcome to whoever waits for it, on the waiter's executor.
class Completion {
  public:
    virtual ~Completion() = default;
    virtual void finish(std::exception_ptr failure, Response response) = 0;
};

/// One exchange: the curl handle, what it sends and what has come so far. Used on one thread at a time, and
/// finished or failed exactly once.
class Transfer {
  public:
    Transfer(Request request, std::unique_ptr<Completion> completion);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    [[nodiscard]] CURL* handle() const { return easy_; }

    void finish(CURLcode result);
    void fail(URLError::Code code);

  private:
    static std::size_t receive(char* data, std::size_t size, std::size_t count, void* self);
    void setUp();

    Request request_;
    std::unique_ptr<Completion> completion_;
    CURL* easy_;
    curl_slist* headers_ = nullptr;
    std::string body_;
    bool tooLarge_ = false;
};

/// `osError` is the errno of the failed connection, 0 if there is none; `hasNetwork` says whether the
/// machine has an address other than loopback.
[[nodiscard]] URLError::Code codeFor(CURLcode result, long osError, bool hasNetwork);

} // namespace velto::http
