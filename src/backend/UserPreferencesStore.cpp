#include "backend/UserPreferencesStore.hpp"

#include "platform/concurrency/Executors.hpp"
#include "platform/log/Log.hpp"

namespace velto {

UserPreferencesStore& UserPreferencesStore::shared() {
    static UserPreferencesStore store;
    return store;
}

void UserPreferencesStore::update(const UserProfile& profile, const PreferencesDefaults& defaults) {
    assertMainActor();
    userGenres = profile.genres.value_or(Names());
    userRegions = profile.regions.value_or(Names());
    availableGenres = defaults.genres;
    availableRegions = defaults.regions;
    availableEras = defaults.eras;
    log::line("📝 [PREFS] Updated user preferences:");
    log::line("   Genres: {} configured", userGenres->size());
    log::line("   Regions: {} configured", userRegions->size());
    log::line("   Available eras: {}", availableEras->size());
}

void UserPreferencesStore::clear() {
    assertMainActor();
    for (auto* names : {&userGenres, &userRegions, &availableGenres, &availableRegions, &availableEras})
        *names = Names();
}

} // namespace velto
