#include "store/ScanRun.hpp"

#include "store/Library.hpp"

namespace velto {

ScanRun::ScanRun(const LibraryRef& itsLibrary, Date itsStartedAt) {
    auto& fields = edit();
    fields.startedAt = itsStartedAt;
    fields.library = itsLibrary;
}

model::EntityDescription ScanRun::describe() {
    return model::EntityBuilder<ScanRun>("ScanRun")
        .attribute<&ScanRunFields::startedAt>("startedAt")
        .attribute<&ScanRunFields::finishedAt>("finishedAt")
        .attribute<&ScanRunFields::totalSeen>("totalSeen")
        .attribute<&ScanRunFields::newCount>("newCount")
        .attribute<&ScanRunFields::changedCount>("changedCount")
        .attribute<&ScanRunFields::missingCount>("missingCount")
        .attribute<&ScanRunFields::errorCount>("errorCount")
        .attribute<&ScanRunFields::notes>("notes")
        .toOne<&ScanRunFields::library, &LibraryFields::scanRuns>("library")
        .build();
}

} // namespace velto
