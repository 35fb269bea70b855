#include "store/FileItem.hpp"

#include "store/Library.hpp"
#include "store/Track.hpp"

namespace velto {

FileItem::FileItem(std::string itsAbsPath, std::string itsRelPath, std::string itsFilename,
                   std::string itsExt, std::int64_t itsSizeBytes, Date itsMtime, FileStatus itsStatus,
                   Date now) {
    auto& fields = edit();
    fields.absPath = std::move(itsAbsPath);
    fields.relPath = std::move(itsRelPath);
    fields.filename = std::move(itsFilename);
    fields.ext = std::move(itsExt);
    fields.sizeBytes = itsSizeBytes;
    fields.mtime = itsMtime;
    fields.status = itsStatus;
    fields.firstSeen = now;
}

model::EntityDescription FileItem::describe() {
    return model::EntityBuilder<FileItem>("FileItem")
        .attribute<&FileItemFields::absPath>("absPath")
        .attribute<&FileItemFields::relPath>("relPath")
        .attribute<&FileItemFields::filename>("filename")
        .attribute<&FileItemFields::ext>("ext")
        .attribute<&FileItemFields::sizeBytes>("sizeBytes")
        .attribute<&FileItemFields::mtime>("mtime")
        .attribute<&FileItemFields::creationDate>("creationDate")
        .attribute<&FileItemFields::inode>("inode")
        .attribute<&FileItemFields::quickSig>("quickSig")
        .attribute<&FileItemFields::fileHash>("fileHash")
        .attribute<&FileItemFields::status>("status")
        .attribute<&FileItemFields::durationSec>("durationSec")
        .attribute<&FileItemFields::bitrateKbps>("bitrateKbps")
        .attribute<&FileItemFields::samplerateHz>("samplerateHz")
        .attribute<&FileItemFields::channels>("channels")
        .attribute<&FileItemFields::firstSeen>("firstSeen")
        .attribute<&FileItemFields::lastSeen>("lastSeen")
        .attribute<&FileItemFields::lastScannedAt>("lastScannedAt")
        .attribute<&FileItemFields::errorMsg>("errorMsg")
        .attribute<&FileItemFields::genreText>("genreText")
        .toOne<&FileItemFields::library, &LibraryFields::files>("library")
        .toOne<&FileItemFields::track, &TrackFields::files>("track")
        .build();
}

} // namespace velto
