#include "platform/http/Transfer.hpp"

#include "platform/http/Url.hpp"

#include <ifaddrs.h>
#include <net/if.h>

#include <cerrno>
#include <new>
#include <utility>

namespace velto::http {

namespace {

bool hasNetworkAddress() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return true;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_LOOPBACK) != 0 ||
            (entry->ifa_flags & IFF_UP) == 0)
            continue;
        if (entry->ifa_addr->sa_family == AF_INET || entry->ifa_addr->sa_family == AF_INET6) return true;
    }
    return false;
}

bool isLoopback(const std::string& host) {
    return host == "localhost" || host.ends_with(".localhost") || host.starts_with("127.") || host == "[::1]";
}

} // namespace

URLError::Code codeFor(CURLcode result, long osError, bool hasNetwork) {
    using Code = URLError::Code;
    switch (result) {
    case CURLE_OPERATION_TIMEDOUT:
        return Code::timedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return hasNetwork ? Code::cannotFindHost : Code::notConnectedToInternet;
    case CURLE_COULDNT_CONNECT:
        if (osError == ENETUNREACH || osError == EHOSTUNREACH || osError == ENETDOWN)
            return Code::notConnectedToInternet;
        return Code::cannotConnectToHost;
    case CURLE_PROXY:
        return Code::cannotConnectToHost;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2_STREAM:
        return Code::networkConnectionLost;
    case CURLE_URL_MALFORMAT:
        return Code::badURL;
    case CURLE_FILESIZE_EXCEEDED:
        return Code::dataLengthExceedsMaximum;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
        return Code::serverCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_USE_SSL_FAILED:
        return Code::secureConnectionFailed;
    // The scheme was looked at before: here it is a reply in no protocol that is spoken.
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
        return Code::badServerResponse;
    default:
        return Code::unknown;
    }
}

Transfer::Transfer(Request request, std::unique_ptr<Completion> completion)
    : request_(std::move(request))
    , completion_(std::move(completion))
    , easy_(curl_easy_init()) {
    if (easy_ == nullptr) throw std::bad_alloc();
    setUp();
}

Transfer::~Transfer() {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(headers_);
}

void Transfer::setUp() {
    for (const auto& [name, value] : request_.headers)
        // curl takes "Name;" for a header without a value; "Name:" would leave the header out.
        headers_ = curl_slist_append(headers_, (name + (value.empty() ? ";" : ": " + value)).c_str());
    // Without this curl holds a large body back for a second, waiting for "100 Continue".
    headers_ = curl_slist_append(headers_, "Expect:");
    curl_easy_setopt(easy_, CURLOPT_URL, request_.url.c_str());
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_USERAGENT, "Velto");
    curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, static_cast<long>(request_.timeout.count() * 1000));
    curl_easy_setopt(easy_, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(request_.maximumBodySize));
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &Transfer::receive);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
    if (isLoopback(hostOf(request_.url).value_or(""))) curl_easy_setopt(easy_, CURLOPT_PROXY, "");
    // On a connection that was used before, curl sends again what got no reply; a request may cost credits.
    curl_easy_setopt(easy_, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(easy_, CURLOPT_FORBID_REUSE, 1L);
    if (request_.method == "GET") return;
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request_.body.data());
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
    curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

std::size_t Transfer::receive(char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    const std::size_t length = size * count;
    if (length > transfer.request_.maximumBodySize - transfer.body_.size()) {
        transfer.tooLarge_ = true;
        return CURL_WRITEFUNC_ERROR;
    }
    transfer.body_.append(data, length);
    return length;
}

void Transfer::finish(CURLcode result) {
    if (tooLarge_) return fail(URLError::Code::dataLengthExceedsMaximum);
    if (result != CURLE_OK) {
        long osError = 0;
        curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &osError);
        return fail(codeFor(result, osError, hasNetworkAddress()));
    }
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    Response response;
    if (status != 0) response.status = static_cast<int>(status);
    response.body = std::move(body_);
    completion_->finish(nullptr, std::move(response));
}

void Transfer::fail(URLError::Code code) {
    completion_->finish(std::make_exception_ptr(URLError(code)), {});
}

} // namespace velto::http
