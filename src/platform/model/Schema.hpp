#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velto::model {

struct SchemaVersion {
    int major = 1;
    int minor = 0;
    int patch = 0;

    /// The number that a store file carries; it grows with the version. Reaches the disk, do not change.
    [[nodiscard]] std::int64_t encoded() const { return major * 1'000'000LL + minor * 1'000LL + patch; }

    [[nodiscard]] static SchemaVersion decoded(std::int64_t number) {
        return {static_cast<int>(number / 1'000'000), static_cast<int>(number / 1'000 % 1'000),
                static_cast<int>(number % 1'000)};
    }

    [[nodiscard]] std::string text() const;
};

/// One step from a version that was shipped to the next one: what SQL makes of the older tables. Steps are
/// never changed once they are shipped.
struct Migration {
    SchemaVersion from;
    SchemaVersion to;
    std::vector<std::string> statements;
};

/// The entities of a store, in order, under one version. All relationships must lead to entities of the list.
/// A store of an older version is brought to this one by the migrations, one after the other.
struct Schema {
    SchemaVersion version;
    std::vector<const EntityDescription*> entities;
    std::vector<Migration> migrations = {};

    template <typename... Entities>
    static Schema of(SchemaVersion version) {
        return Schema{version, {&entityDescription<Entities>()...}, {}};
    }
};

struct ModelConfiguration {
    std::filesystem::path storePath; ///< its folder is made if it is missing
};

} // namespace velto::model
