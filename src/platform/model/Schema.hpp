#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace velto::model {

struct SchemaVersion {
    int major = 1;
    int minor = 0;
    int patch = 0;

    /// The number that a store file carries; it grows with the version. Reaches the disk, do not change.
    [[nodiscard]] std::int64_t encoded() const { return major * 1'000'000LL + minor * 1'000LL + patch; }
};

/// The entities of a store, in order, under one version. All relationships must lead to entities of the list.
struct Schema {
    SchemaVersion version;
    std::vector<const EntityDescription*> entities;

    template <typename... Entities>
    static Schema of(SchemaVersion version) {
        return Schema{version, {&entityDescription<Entities>()...}};
    }
};

struct ModelConfiguration {
    std::filesystem::path storePath; ///< its folder is made where it is missing
    bool isMemoryOnly = false;       ///< then storePath is only a name for error texts
};

} // namespace velto::model
