#pragma once

#include "backend/UserProfile.hpp"
#include "platform/concurrency/Published.hpp"

#include <string>
#include <vector>

namespace velto {

/// The tag vocabulary of this run: what the user chose and what the backend can give. Empty until the first
/// profile arrives; nothing of it is persisted. Confined to the main actor.
class UserPreferencesStore {
  public:
    using Names = std::vector<std::string>;

    /// The process-wide store, made on first use.
    static UserPreferencesStore& shared();

    Published<Names> userGenres;
    Published<Names> userRegions;
    Published<Names> availableGenres;
    Published<Names> availableRegions;
    Published<Names> availableEras;

    void update(const UserProfile& profile, const PreferencesDefaults& defaults);
    void clear();
};

} // namespace velto
