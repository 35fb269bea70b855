#pragma once

#include "platform/model/Entity.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace velto {

class Library;

struct ScanRunFields {
    Date startedAt;
    std::optional<Date> finishedAt; ///< none while the scan runs
    std::int64_t totalSeen = 0;
    std::int64_t newCount = 0;
    std::int64_t changedCount = 0;
    std::int64_t missingCount = 0;
    std::int64_t errorCount = 0;
    std::optional<std::string> notes;
    model::ToOne<Library> library;
};

/// One scan of a library.
class ScanRun final : public model::Entity<ScanRun, ScanRunFields> {
  public:
    ScanRun(const model::Ref<Library>& library, Date startedAt);

    explicit ScanRun(model::Loading) {}

    static model::EntityDescription describe();
};

using ScanRunRef = model::Ref<ScanRun>;

} // namespace velto
