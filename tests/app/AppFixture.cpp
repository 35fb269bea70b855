#include "app/AppFixture.hpp"

#include <sqlite3.h>

namespace velto::test {

TaggingResult ScriptedTaggingService::tagAll(const std::vector<TrackTaggingInput>& tracks) {
    TaggingResult result;
    result.success = true;
    result.tracksTagged = result.creditsConsumed = static_cast<std::int64_t>(tracks.size());
    for (const auto& track : tracks)
        result.tags.push_back(
            {track.id, track.artist, track.title, {"House", track.artist}, {"Europe"}, "1990s"});
    return result;
}

AppFixture::AppFixture()
    : crashReporter(folder / "crash")
    , container(model::ModelContainer::create(storeSchema(), {folder / "store"}))
    , settings(folder / "defaults", runtime.executors()) {
    restart();
}

AppFixture::~AppFixture() {
    viewModel.reset();
}

void AppFixture::restart(bool checksAtLoad) {
    viewModel.reset();
    taggingJournal.emplace(folder.path(), runtime.executors());
    tagging = std::make_shared<ScriptedTaggingService>(runtime.executors());
    writer = std::make_shared<NotingMetadataWriter>();
    sync = std::make_shared<ScriptedLibrarySync>();
    viewModel = MainScreenViewModel::create({.executors = runtime.executors(),
                                             .clock = clock,
                                             .crashReporter = crashReporter,
                                             .modelContext = container->mainContext(),
                                             .settings = settings,
                                             .folderGrants = grants,
                                             .rewriteJournal = journal,
                                             .taggingJournal = *taggingJournal,
                                             .genreTextParser = nullptr,
                                             .metadataWriter = writer,
                                             .checksAtLoad = checksAtLoad});
    viewModel->setUp({.authManager = nullptr, .taggingService = tagging, .librarySyncService = nullptr});
}

void AppFixture::signIn() {
    UserSession session;
    session.isSignedIn = true;
    viewModel->userSession = session;
}

std::filesystem::path AppFixture::makeFolder(const std::string& name) {
    std::filesystem::create_directories(folder / name);
    return folder / name;
}

LibraryRef AppFixture::add(const std::string& name) {
    runtime.run(viewModel->addLibrary(name, makeFolder(name), "*.mp3", std::nullopt));
    return viewModel->selectedLibrary;
}

std::vector<std::string> AppFixture::names() const {
    std::vector<std::string> found;
    for (const LibraryRef& library : viewModel->libraries.get())
        found.push_back(library->name);
    return found;
}

std::int64_t AppFixture::stored(const std::string& query) const {
    sqlite3* connection = nullptr;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_open((folder / "store").c_str(), &connection), SQLITE_OK);
    EXPECT_EQ(sqlite3_prepare_v2(connection, query.c_str(), -1, &statement, nullptr), SQLITE_OK) << query;
    const int end = sqlite3_step(statement);
    EXPECT_TRUE(end == SQLITE_ROW || end == SQLITE_DONE) << query;
    const std::int64_t number = end == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
    sqlite3_finalize(statement);
    sqlite3_close(connection);
    return number;
}

LibraryRef AppFixture::libraryWithTracks(const std::string& name, std::size_t count) {
    auto& context = container->mainContext();
    const auto library =
        model::make<Library>(name, (folder / name).string(), std::nullopt, std::nullopt, true);
    context.insert(library);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        TrackMetadata metadata;
        metadata.artist = "Artist " + number;
        metadata.title = "Title " + number;
        const auto track = model::make<Track>(name + number, metadata);
        const auto file =
            model::make<FileItem>((folder / name / (number + ".mp3")).string(), number + ".mp3",
                                  number + ".mp3", "mp3", 1, clock.now(), FileStatus::ready, clock.now());
        context.insert(track);
        file->edit().library = library;
        file->edit().track = track;
    }
    context.save();
    return library;
}

} // namespace velto::test
