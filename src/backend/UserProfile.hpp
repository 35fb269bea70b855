#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

namespace json {
class Decoder;
}

struct UserProfile {
    std::string id;
    std::string email;
    std::optional<std::string> name;
    std::optional<std::vector<std::string>> genres;
    std::optional<std::vector<std::string>> regions;

    static UserProfile decode(const json::Decoder& from);
    bool operator==(const UserProfile&) const = default;
};

/// The backend gives one number, the credits that are left: it is kept in `total`, and `used` is 0.
struct CreditBalance {
    std::int64_t used = 0;
    std::int64_t total = 0;

    bool operator==(const CreditBalance&) const = default;
};

/// The backend's vocabulary: every tag that it can give.
struct PreferencesDefaults {
    std::vector<std::string> genres;
    std::vector<std::string> regions;
    std::vector<std::string> eras;

    static PreferencesDefaults decode(const json::Decoder& from);
    bool operator==(const PreferencesDefaults&) const = default;
};

/// The reply to GetUserAndDefaults.
struct UserPreferencesQueryResponse {
    static constexpr std::string_view typeName = "UserPreferencesQueryResponse";

    UserProfile me;
    std::int64_t creditBalance = 0;
    PreferencesDefaults preferencesDefaults;

    static UserPreferencesQueryResponse decode(const json::Decoder& from);
};

} // namespace velto
