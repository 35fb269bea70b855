#pragma once

#include "platform/log/Log.hpp"
#include "store/FileRepository.hpp"
#include "store/GenreTextParser.hpp"
#include "store/LibraryRepository.hpp"
#include "store/ScanRunRepository.hpp"
#include "store/TrackRepository.hpp"
#include "support/ManualClock.hpp"
#include "support/Sql.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velto::test {

/// An open store on a real file, a clock that stands still and the log's lines.
class StoreTest : public ::testing::Test {
  protected:
    StoreTest() { open(); }

    void open() { container = model::ModelContainer::create(storeSchema(), {folder / "velto.store"}); }

    void reopen() {
        container.reset();
        open();
    }

    [[nodiscard]] ModelContext& context() { return container->mainContext(); }

    [[nodiscard]] Date now() const { return clock.now(); }

    LibraryRef addLibrary(const std::string& name) {
        auto library = model::make<Library>(name, "/music/" + name, std::nullopt, std::nullopt, true);
        context().insert(library);
        return library;
    }

    FileItemRef addFile(const LibraryRef& library, const std::string& relPath,
                        FileStatus status = FileStatus::ready) {
        auto file =
            model::make<FileItem>("/music/" + relPath, relPath, relPath, "mp3", 1, now(), status, now());
        file->edit().library = library;
        return file;
    }

    TrackRef addTrack(const std::string& title) {
        TrackMetadata metadata;
        metadata.title = title;
        auto track = model::make<Track>("|" + title + "||0.0", metadata);
        context().insert(track);
        return track;
    }

    TemporaryFolder folder;
    TestRuntime runtime;
    ManualClock clock{runtime.main()};
    std::unique_ptr<model::ModelContainer> container;
    log::Capture logged;
};

} // namespace velto::test
