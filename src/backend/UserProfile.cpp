#include "backend/UserProfile.hpp"

#include "backend/Json.hpp"

namespace velto {

UserProfile UserProfile::decode(const json::Decoder& from) {
    UserProfile profile;
    profile.id = from.at("id").text();
    profile.email = from.at("email").text();
    profile.name = from.optionalText("name");
    profile.genres = from.optionalTexts("genres");
    profile.regions = from.optionalTexts("regions");
    return profile;
}

PreferencesDefaults PreferencesDefaults::decode(const json::Decoder& from) {
    return {from.at("genres").texts(), from.at("regions").texts(), from.at("eras").texts()};
}

UserPreferencesQueryResponse UserPreferencesQueryResponse::decode(const json::Decoder& from) {
    return {UserProfile::decode(from.at("me")), from.at("creditBalance").integer(),
            PreferencesDefaults::decode(from.at("preferencesDefaults"))};
}

} // namespace velto
