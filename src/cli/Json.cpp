#include "cli/Json.hpp"

namespace velto::cli {

namespace {

template <typename T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json orNull(const std::optional<Date>& date) {
    return date ? Json(iso8601(*date)) : Json(nullptr);
}

Json toJson(const FileItemRef& file) {
    return {{"absPath", file->absPath},
            {"relPath", file->relPath},
            {"status", rawValue(file->status)},
            {"quickSig", orNull(file->quickSig)},
            {"errorMsg", orNull(file->errorMsg)}};
}

} // namespace

Json toJson(const LibraryRef& library, Date now) {
    return {{"name", library->name},
            {"rootPath", library->rootPath},
            {"includeGlob", orNull(library->includeGlob)},
            {"excludeGlob", orNull(library->excludeGlob)},
            {"isEnabled", library->isEnabled},
            {"lastScanStartedAt", orNull(library->lastScanStartedAt)},
            {"lastScanFinishedAt", orNull(library->lastScanFinishedAt)},
            {"lastSyncedAt", orNull(library->lastSyncedAt)},
            {"trackCountText", library->trackCountText()},
            {"lastImportText", library->lastImportText(now)}};
}

Json toJson(const TrackRef& track) {
    Json files = Json::array();
    for (const FileItemRef& file : track->files)
        files.push_back(toJson(file));
    return {{"artist", orNull(track->artist)},
            {"title", orNull(track->title)},
            {"album", orNull(track->album)},
            {"trackNumber", orNull(track->trackNumber)},
            {"genre", orNull(track->genre)},
            {"bpm", orNull(track->bpm)},
            {"durationSec", orNull(track->durationSec)},
            {"year", orNull(track->year)},
            {"canonicalSig", track->canonicalSig},
            {"lastTagged", orNull(track->lastTagged)},
            {"lastSyncedAt", orNull(track->lastSyncedAt)},
            {"createdAt", orNull(track->createdAt)},
            {"genres", orNull(track->genres)},
            {"regions", orNull(track->regions)},
            {"era", orNull(track->era)},
            {"status", rawValue(track->status())},
            {"needsSync", track->needsSync()},
            {"files", std::move(files)}};
}

Json toJson(const ScanRunRef& run) {
    return {{"startedAt", iso8601(run->startedAt)},
            {"finishedAt", orNull(run->finishedAt)},
            {"totalSeen", run->totalSeen},
            {"newCount", run->newCount},
            {"changedCount", run->changedCount},
            {"missingCount", run->missingCount},
            {"errorCount", run->errorCount},
            {"notes", orNull(run->notes)},
            {"library", run->library ? Json(run->library->name) : Json(nullptr)}};
}

Json toJson(const UserSession& session) {
    Json credits = nullptr;
    if (session.creditBalance)
        credits = {{"used", session.creditBalance->used}, {"total", session.creditBalance->total}};
    return {{"isSignedIn", session.isSignedIn},
            {"email", orNull(session.email)},
            {"name", orNull(session.name)},
            {"creditBalance", std::move(credits)}};
}

std::string printed(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string printedArray(const std::vector<TrackRef>& tracks) {
    std::string text = "[";
    for (const TrackRef& track : tracks) {
        text += text.size() > 1 ? ",\n  " : "\n  ";
        for (const char c : printed(toJson(track))) {
            text += c;
            if (c == '\n') text += "  "; // one level further in; a line feed inside a text is escaped
        }
    }
    return text + (tracks.empty() ? "]" : "\n]");
}

} // namespace velto::cli
