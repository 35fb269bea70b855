#include "platform/keyring/SecretServiceKeyring.hpp"

#include "platform/text/Text.hpp"

#include <libsecret/secret.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace velto {

namespace {

using ErrorOwner = std::unique_ptr<GError, decltype(&g_error_free)>;
using AttributesOwner = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;
using ValueOwner = std::unique_ptr<SecretValue, decltype(&secret_value_unref)>;

/// The names are in users' keyrings: do not change.
const SecretSchema* schema() {
    static const SecretSchema description = {
        "com.velto.desktop.Token",
        SECRET_SCHEMA_NONE,
        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING}, {"account", SECRET_SCHEMA_ATTRIBUTE_STRING}, {}},
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    return &description;
}

/// Cancels its cancellable once the time is up: the service, or the person whom it asks, may never answer.
class TimeLimit {
  public:
    explicit TimeLimit(Seconds limit)
        : cancellable_(g_cancellable_new())
        , thread_([this, limit] { wait(limit); }) {}

    ~TimeLimit() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        over_.notify_one();
        thread_.join();
        g_object_unref(cancellable_);
    }

    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

    [[nodiscard]] GCancellable* cancellable() const { return cancellable_; }

  private:
    void wait(Seconds limit) {
        std::unique_lock lock(mutex_);
        if (!over_.wait_for(lock, limit, [this] { return isOver_; })) g_cancellable_cancel(cancellable_);
    }

    GCancellable* cancellable_;
    std::mutex mutex_;
    std::condition_variable over_;
    bool isOver_ = false;
    std::thread thread_;
};

/// One call of the Secret Service at a time: its client library shares one connection and session.
class Call {
  public:
    explicit Call(Seconds limit)
        : lock_(mutex())
        , limit_(limit) {
        // The shared bus connection ends the whole program when the bus goes, unless it is set otherwise.
        GError* failure = nullptr;
        if (GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, limit_.cancellable(), &failure)) {
            g_dbus_connection_set_exit_on_close(bus, FALSE);
            g_object_unref(bus);
        }
        g_clear_error(&failure);
    }

    [[nodiscard]] GCancellable* cancellable() const { return limit_.cancellable(); }

  private:
    static std::mutex& mutex() {
        static std::mutex shared;
        return shared;
    }

    std::lock_guard<std::mutex> lock_;
    TimeLimit limit_;
};

/// True if the operation reported no failure.
bool succeeded(GError* failure) {
    const ErrorOwner owner(failure, &g_error_free);
    return failure == nullptr;
}

/// Whether the keyring holds the item, locked or not: a look-up and a removal pass over a locked one without
/// a failure. Nothing if the search failed.
std::optional<bool> holds(GCancellable* cancellable, SecretSearchFlags flags, const std::string& service,
                          const std::string& account) {
    GError* failure = nullptr;
    const AttributesOwner attributes(
        secret_attributes_build(schema(), "service", service.c_str(), "account", account.c_str(), nullptr),
        &g_hash_table_unref);
    GList* found =
        secret_service_search_sync(nullptr, schema(), attributes.get(), flags, cancellable, &failure);
    const bool isThere = found != nullptr;
    g_list_free_full(found, g_object_unref);
    if (!succeeded(failure)) return std::nullopt;
    return isThere;
}

} // namespace

SecretServiceKeyring::SecretServiceKeyring(std::string serviceName, std::string accountName,
                                           Seconds timeLimit)
    : serviceName_(std::move(serviceName))
    , accountName_(std::move(accountName))
    , timeLimit_(timeLimit) {}

void SecretServiceKeyring::saveToken(const std::string& token) {
    if (!text::isValidUtf8(token)) throw KeychainError(KeychainError::Case::unexpectedData);
    const Call call(timeLimit_);
    GError* failure = nullptr;
    secret_password_clear_sync(schema(), call.cancellable(), &failure, "service", serviceName_.c_str(),
                               "account", accountName_.c_str(), nullptr);
    g_clear_error(&failure);
    const ValueOwner value(
        secret_value_new(token.data(), static_cast<gssize>(token.size()), "text/plain; charset=utf8"),
        &secret_value_unref);
    const gboolean stored = secret_password_store_binary_sync(
        schema(), SECRET_COLLECTION_DEFAULT, "Velto sign-in token", value.get(), call.cancellable(), &failure,
        "service", serviceName_.c_str(), "account", accountName_.c_str(), nullptr);
    if (!succeeded(failure) || !stored) throw KeychainError(KeychainError::Case::unableToSave);
}

std::optional<std::string> SecretServiceKeyring::retrieveToken() {
    const Call call(timeLimit_);
    GError* failure = nullptr;
    const ValueOwner value(secret_password_lookup_binary_sync(schema(), call.cancellable(), &failure,
                                                              "service", serviceName_.c_str(), "account",
                                                              accountName_.c_str(), nullptr),
                           &secret_value_unref);
    if (!succeeded(failure)) throw KeychainError(KeychainError::Case::unableToRetrieve);
    if (!value) {
        if (holds(call.cancellable(), SECRET_SEARCH_ALL, serviceName_, accountName_) != false)
            throw KeychainError(KeychainError::Case::unableToRetrieve); // it is there, and locked
        return std::nullopt;
    }
    gsize length = 0;
    const gchar* data = secret_value_get(value.get(), &length);
    std::string token(data, length);
    if (!text::isValidUtf8(token)) throw KeychainError(KeychainError::Case::unexpectedData);
    return token;
}

void SecretServiceKeyring::deleteToken() {
    const Call call(timeLimit_);
    GError* failure = nullptr;
    // Only what is unlocked is cleared. If nobody unlocks it, the token stays.
    constexpr auto unlocking = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK);
    static_cast<void>(holds(call.cancellable(), unlocking, serviceName_, accountName_));
    secret_password_clear_sync(schema(), call.cancellable(), &failure, "service", serviceName_.c_str(),
                               "account", accountName_.c_str(), nullptr);
    if (!succeeded(failure) ||
        holds(call.cancellable(), SECRET_SEARCH_ALL, serviceName_, accountName_) != false)
        throw KeychainError(KeychainError::Case::unableToDelete);
}

} // namespace velto
