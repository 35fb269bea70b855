#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"
#include "tagwriting/MetadataWriter.hpp"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace velto;

constexpr int fileCount = 1000;

class NoReporter final : public CrashReporter {
  public:
    void log(std::string_view) override {}

    void recordError(const std::exception&) override {}

    void setUserID(const std::optional<std::string>&) override {}
};

std::string fileName(int index) {
    return "song" + std::to_string(index) + ".mp3";
}

/// Songs of `kilobytes` each, with a small version 2.3 tag and no padding, as encoders leave them; on the
/// disk.
void makeSongs(const test::TemporaryFolder& folder, std::int64_t kilobytes) {
    const std::string tag("ID3\x03\0\0\0\0\0\x10TIT2\0\0\0\x06\0\0\0Title", 26);
    std::string song = tag + "\xFF\xFB";
    while (song.size() < static_cast<std::size_t>(kilobytes) << 10)
        song += static_cast<char>(song.size() * 31 ^ song.size() >> 8);
    for (int index = 0; index < fileCount; ++index)
        folder.write(fileName(index), song);
    ::sync();
}

void copyContent(int from, int to) {
    while (::copy_file_range(from, nullptr, to, nullptr, 1 << 30, 0) > 0) {
    }
}

/// The floor: copies the backup, rewrites the file with a tag in front, syncs it, unlinks the backup. Proves
/// nothing and survives nothing.
void bareLoop(const test::TemporaryFolder& folder) {
    const std::string tag("ID3\x03\0\0\0\0\x0F\x76", 10);
    for (int index = 0; index < fileCount; ++index) {
        const std::string file = (folder / fileName(index)).string();
        const std::string backup = (folder / ("." + fileName(index) + ".backup")).string();
        const int source = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        const int copy = ::open(backup.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        copyContent(source, copy);
        ::close(copy);
        ::close(source);
        const std::string content = tag + std::string(2038, '\0') + test::readFile(file).substr(26);
        const int target = ::open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        benchmark::DoNotOptimize(::write(target, content.data(), content.size()));
        ::fsync(target);
        ::close(target);
        ::unlink(backup.c_str());
    }
}

void bare(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const test::TemporaryFolder folder;
        makeSongs(folder, state.range(0));
        state.ResumeTiming();
        bareLoop(folder);
    }
}

Task<void> writeAll(SimpleMetadataWriter& writer, const test::TemporaryFolder& folder) {
    const std::vector<std::string> genres{"Deep House - House - 1990s"};
    for (int index = 0; index < fileCount; ++index)
        co_await writer.writeGenreTags(genres, folder / fileName(index), false);
}

void proven(benchmark::State& state) {
    test::TestRuntime runtime;
    NoReporter reporter;
    for (auto _ : state) {
        state.PauseTiming();
        const test::TemporaryFolder folder;
        const test::TemporaryFolder home;
        makeSongs(folder, state.range(0));
        RewriteJournal journal(home / "journal");
        SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
        state.ResumeTiming();
        runtime.run(writeAll(writer, folder));
    }
}

/// Songs that have room for the new tag already.
void provenAgain(benchmark::State& state) {
    test::TestRuntime runtime;
    NoReporter reporter;
    const test::TemporaryFolder folder;
    makeSongs(folder, state.range(0));
    RewriteJournal journal(folder / "journal");
    SimpleMetadataWriter writer(runtime.executors(), reporter, journal);
    runtime.run(writeAll(writer, folder));
    for (auto _ : state)
        runtime.run(writeAll(writer, folder));
}

} // namespace

// 1,000 files of 100 KiB and of 5 MiB; wall time. The ratio of "proven" to "bare" is what counts.
BENCHMARK(bare)
    ->Name("tagwriting/bare")
    ->Arg(100)
    ->Arg(5120)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK(proven)
    ->Name("tagwriting/proven")
    ->Arg(100)
    ->Arg(5120)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
BENCHMARK(provenAgain)
    ->Name("tagwriting/again")
    ->Arg(100)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);
