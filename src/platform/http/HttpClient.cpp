#include "platform/http/HttpClient.hpp"

#include "platform/http/Transfer.hpp"
#include "platform/http/Url.hpp"

#include <asio/associated_executor.hpp>
#include <asio/async_result.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace velto::http {

namespace {

template <typename Handler>
class HandlerCompletion final : public Completion {
  public:
    explicit HandlerCompletion(Handler handler)
        : handler_(std::move(handler))
        , work_(asio::get_associated_executor(handler_)) {}

    void finish(std::exception_ptr failure, Response response) override {
        asio::post(work_.get_executor(), [handler = std::move(handler_), failure = std::move(failure),
                                          response = std::move(response)]() mutable {
            std::move(handler)(std::move(failure), std::move(response));
        });
        work_.reset();
    }

  private:
    Handler handler_;
    asio::executor_work_guard<asio::associated_executor_t<Handler>> work_;
};

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool isSendable(const Header& header) {
    return !header.name.empty() && header.name.find_first_of(" :;") == std::string::npos &&
           std::none_of(header.name.begin(), header.name.end(), isControl) &&
           std::none_of(header.value.begin(), header.value.end(), isControl);
}

void checkRequest(const Request& request) {
    const auto url = Url::parse(request.url);
    if (!url) throw URLError(URLError::Code::badURL);
    if (!url->isWeb()) throw URLError(URLError::Code::unsupportedURL);
    if (!std::all_of(request.headers.begin(), request.headers.end(), isSendable))
        throw URLError(URLError::Code::invalidHeader);
}

} // namespace

/// The thread and what is under way. `mutex_` guards only what callers hand over.
class HttpClient::Worker {
  public:
    Worker()
        : multi_(curl_multi_init()) {
        if (multi_ == nullptr) throw std::bad_alloc();
        thread_ = std::thread([this] { run(); });
    }

    ~Worker() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        curl_multi_wakeup(multi_);
        thread_.join();
        for (const auto& [handle, transfer] : running_) {
            curl_multi_remove_handle(multi_, handle);
            transfer->fail(URLError::Code::cancelled);
        }
        for (const auto& transfer : waiting_)
            transfer->fail(URLError::Code::cancelled);
        running_.clear();
        curl_multi_cleanup(multi_);
    }

    void submit(std::unique_ptr<Transfer> transfer) {
        {
            const std::lock_guard lock(mutex_);
            waiting_.push_back(std::move(transfer));
        }
        curl_multi_wakeup(multi_);
    }

  private:
    void run() {
        while (takeWaiting()) {
            int count = 0;
            curl_multi_perform(multi_, &count);
            finishDone();
            // Ends early for a socket, for curl's own timers and for a wake-up.
            constexpr int longWait = 60'000;
            curl_multi_poll(multi_, nullptr, 0, longWait, nullptr);
        }
    }

    bool takeWaiting() {
        const std::lock_guard lock(mutex_);
        if (stopping_) return false;
        for (auto& transfer : std::exchange(waiting_, {})) {
            CURL* handle = transfer->handle();
            if (curl_multi_add_handle(multi_, handle) == CURLM_OK)
                running_.emplace(handle, std::move(transfer));
            else
                transfer->fail(URLError::Code::unknown); // out of memory
        }
        return true;
    }

    void finishDone() {
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            if (message->msg != CURLMSG_DONE) continue;
            const CURLcode result = message->data.result;
            CURL* handle = message->easy_handle; // the message goes with its handle
            curl_multi_remove_handle(multi_, handle);
            const auto node = running_.extract(handle);
            node.mapped()->finish(result);
        }
    }

    CURLM* multi_;
    std::map<CURL*, std::unique_ptr<Transfer>> running_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Transfer>> waiting_;
    bool stopping_ = false;
    std::thread thread_;
};

HttpClient::HttpClient() {
    static const CURLcode global = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (global != CURLE_OK) throw URLError(URLError::Code::unknown);
    worker_ = std::make_unique<Worker>();
}

HttpClient::~HttpClient() = default;

Task<Response> HttpClient::send(Request request) {
    checkRequest(request);
    auto start = [this, request = std::move(request)](auto handler) mutable {
        using Handler = decltype(handler);
        auto completion = std::make_unique<HandlerCompletion<Handler>>(std::move(handler));
        worker_->submit(std::make_unique<Transfer>(std::move(request), std::move(completion)));
    };
    co_return co_await asio::async_initiate<const asio::use_awaitable_t<>,
                                            void(std::exception_ptr, Response)>(std::move(start),
                                                                                asio::use_awaitable);
}

} // namespace velto::http
