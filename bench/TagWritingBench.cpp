// What writing genres into many files costs beside a bare loop that rewrites them and proves nothing:
// `tagwriting_bench FOLDER [PART]`, where FOLDER holds song.mp3, long.mp3, song.m4a and song.aiff; with PART
// only the measures whose name holds it.

#include "Measure.hpp"
#include "platform/files/Descriptor.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <fcntl.h>
#include <fileref.h>
#include <fmt/format.h>
#include <sys/syscall.h>
#include <tag.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

bool skipsSyncs = false;
std::string part; ///< of the names of the measures to run

} // namespace

/// Stands in front of the C library's, so that the same writer can be timed without its syncs.
extern "C" int fsync(int descriptor) {
    return skipsSyncs ? 0 : static_cast<int>(::syscall(SYS_fsync, descriptor));
}

namespace {

using namespace velto;
using namespace velto::bench;
namespace fs = std::filesystem;
using files::Descriptor;

constexpr const char* genre = "Deep House - House - 1990s";
constexpr const char* memory = "/dev/shm"; // a file system that never waits for a disk

class NoReporter final : public CrashReporter {
  public:
    void log(std::string_view) override {}

    void recordError(const std::exception&) override {}

    void setUserID(const std::optional<std::string>&) override {}
};

/// Copies of one song under their own names, on the disk.
std::vector<fs::path> makeSongs(const fs::path& folder, const fs::path& song, int count) {
    std::vector<fs::path> songs;
    for (int i = 0; i < count; ++i) {
        songs.push_back(folder / fmt::format("song{}{}", i, song.extension().string()));
        fs::copy_file(song, songs.back());
    }
    ::sync();
    return songs;
}

Descriptor openFor(const fs::path& file, int flags) {
    Descriptor descriptor(::open(file.c_str(), flags | O_CLOEXEC, 0600));
    if (!descriptor) throw std::runtime_error("cannot open " + file.string());
    return descriptor;
}

void copyInKernel(const fs::path& from, const fs::path& to) {
    const Descriptor source = openFor(from, O_RDONLY);
    const Descriptor copy = openFor(to, O_WRONLY | O_CREAT | O_EXCL);
    while (::copy_file_range(source.get(), nullptr, copy.get(), nullptr, 1 << 30, 0) > 0) {
    }
}

/// Copies the backup, writes the file anew after a tag of 2 KiB, syncs it, unlinks the backup.
void bareMp3(const fs::path& file) {
    const fs::path backup = file.parent_path() / ("." + file.filename().string() + ".backup");
    copyInKernel(file, backup);
    const Descriptor source = openFor(backup, O_RDONLY);
    std::string tag("ID3\x03\0\0\0\0\x0F\x76", 10);
    if (::pread(source.get(), tag.data(), 10, 0) != 10) throw std::runtime_error("cannot read");
    off_t sound = 10;
    for (int i = 6; i < 10; ++i)
        sound += static_cast<off_t>(tag[static_cast<std::size_t>(i)]) << (7 * (9 - i));
    tag = std::string("ID3\x03\0\0\0\0\x0F\x76", 10) + std::string(2038, '\0');
    const Descriptor target = openFor(file, O_WRONLY | O_TRUNC);
    if (::write(target.get(), tag.data(), tag.size()) < 0) throw std::runtime_error("cannot write");
    while (::copy_file_range(source.get(), &sound, target.get(), nullptr, 1 << 30, 0) > 0) {
    }
    ::fsync(target.get());
    ::unlink(backup.c_str());
}

/// Copies the file, has TagLib edit the copy, syncs it, puts it in the file's place.
void bareExport(const fs::path& file) {
    const fs::path copy = file.parent_path() / ("copy" + file.filename().string());
    copyInKernel(file, copy);
    {
        TagLib::FileRef edited(copy.c_str(), false);
        edited.tag()->setGenre(genre);
        if (!edited.save()) throw std::runtime_error("cannot edit");
    }
    ::fsync(openFor(copy, O_RDONLY).get());
    if (::rename(copy.c_str(), file.c_str()) != 0) throw std::runtime_error("cannot rename");
}

Cost bare(const fs::path& song, int count, void (*rewrite)(const fs::path&)) {
    const test::TemporaryFolder folder;
    const auto songs = makeSongs(folder.path(), song, count);
    return costOf([&] {
        for (const auto& file : songs)
            rewrite(file);
    });
}

Task<void> writeAll(SimpleMetadataWriter& writer, const std::vector<fs::path>& songs) {
    const std::vector<std::string> genres{genre};
    for (const auto& file : songs)
        co_await writer.writeGenreTags(genres, file, false);
}

Cost proven(const fs::path& song, int count) {
    const test::TemporaryFolder folder;
    const test::TemporaryFolder home;
    const auto songs = makeSongs(folder.path(), song, count);
    test::TestRuntime runtime;
    NoReporter reporter;
    RewriteJournal journal(home / "journal");
    SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
    return costOf([&] { runtime.run(writeAll(writer, songs)); });
}

/// mutagen in one process that does all files; it measures its own time, without the interpreter's start.
Cost mutagen(const fs::path& song, int count) {
    const test::TemporaryFolder folder;
    makeSongs(folder.path(), song, count);
    const std::string script = R"(
import os, sys, time
from mutagen.id3 import ID3, TCON
songs = [os.path.join(sys.argv[1], name) for name in sorted(os.listdir(sys.argv[1]))]
start, cpu = time.perf_counter(), time.process_time()
for song in songs:
    tag = ID3(song)
    tag.add(TCON(encoding=3, text=sys.argv[2]))
    tag.save(song, v2_version=3)
print(time.perf_counter() - start, time.process_time() - cpu)
)";
    const std::string output =
        test::runProgram({"/usr/bin/python3", "-c", script, folder.path().string(), genre});
    Cost cost;
    char* end = nullptr;
    cost.seconds = std::strtod(output.c_str(), &end);
    cost.cpuSeconds = std::strtod(end, nullptr);
    if (cost.seconds <= 0) throw std::runtime_error("mutagen told no time");
    return cost;
}

void measure(const std::string& what, const fs::path& song, int count, void (*rewrite)(const fs::path&)) {
    if (what.find(part) == std::string::npos) return;
    constexpr int rounds = 5;
    Series ours;
    Series floor;
    for (int i = 0; i < rounds; ++i) {
        floor.push_back(inChild([&] { return bare(song, count, rewrite); }));
        ours.push_back(inChild([&] { return proven(song, count); }));
    }
    report(what, ours, floor, 1.3);
}

void measureWithoutSyncs(const std::string& what, const fs::path& song, int count, const char* folder,
                         std::optional<double> bound) {
    if (what.find(part) == std::string::npos) return;
    constexpr int rounds = 5;
    Series ours;
    Series theirs;
    skipsSyncs = true;
    const auto there = [&](auto work) {
        return inChild([&] {
            if (folder != nullptr) ::setenv("TMPDIR", folder, 1);
            return work();
        });
    };
    for (int i = 0; i < rounds; ++i) {
        theirs.push_back(there([&] { return mutagen(song, count); }));
        ours.push_back(there([&] { return proven(song, count); }));
    }
    skipsSyncs = false;
    if (bound)
        report(what, ours, theirs, *bound);
    else
        report(what, ours, theirs);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        fmt::print(stderr, "usage: tagwriting_bench FOLDER [PART]\n");
        return 2;
    }
    const fs::path songs = argv[1];
    if (argc == 3) part = argv[2];
    measure("genre into 1000 MP3 of 100 KB, proven and synced; floor: copy, rewrite, sync, unlink",
            songs / "song.mp3", 1000, bareMp3);
    measure("genre into 100 MP3 of 5 MB, likewise", songs / "long.mp3", 100, bareMp3);
    if (fs::is_directory(memory))
        measureWithoutSyncs("genre into 1000 MP3 of 100 KB, without the syncs, in memory; floor: mutagen",
                            songs / "song.mp3", 1000, memory, 1.0);
    measureWithoutSyncs("genre into 1000 MP3 of 100 KB, without the syncs, on the disk; floor: mutagen",
                        songs / "song.mp3", 1000, nullptr, std::nullopt);
    measure("genre into 1000 M4A, proven and synced; floor: copy, TagLib edit, sync, rename",
            songs / "song.m4a", 1000, bareExport);
    measure("genre into 1000 AIFF, likewise", songs / "song.aiff", 1000, bareExport);
}
