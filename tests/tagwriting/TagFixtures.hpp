#pragma once

#include "id3/ID3Types.hpp"
#include "platform/log/CrashReporter.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::test {

/// Bytes of a literal with zeros in it.
template <std::size_t length>
std::string raw(const char (&text)[length]) {
    return {text, length - 1};
}

/// A tag of `version` with flags in front of `body`, its size right.
std::string tagOf(int version, const std::string& body, int flags = 0);
/// One frame of version 2, 3 or 4 (the identifier's length and `version` decide the header).
std::string frameOf(int version, std::string_view identifier, const std::string& content,
                    const std::string& flags = std::string(2, '\0'));
std::string synchsafe(std::size_t value);
/// As zlib packs it.
std::string compressed(const std::string& text);
id3::Bytes bytesOf(const std::string& text);

/// Checks that a scan and a rewrite take the same texts from the tag that `bytes` begin with.
void expectSameReading(const std::string& bytes, const std::string& what);

/// A second of real sound, encoded by ffmpeg once for all tests; `arguments` go in front of the output.
std::filesystem::path makeSound(const TemporaryFolder& folder, const std::string& name,
                                const std::vector<std::string>& arguments = {});

/// Runs a Python script with mutagen; `file` is sys.argv[1].
std::string mutagen(const std::string& script, const std::filesystem::path& file);

/// Everything of an MP3 after its ID3v2 tag.
std::string audioOf(const std::filesystem::path& file);

/// Names in a folder, hidden ones too, sorted.
std::vector<std::string> namesIn(const std::filesystem::path& folder);

/// Runs `work` in a child with files limited to `bytes`: a write beyond fails as on a full disk. False if
/// it threw metadataWriteFailed; anything else fails the test.
bool succeedsWithFileLimit(std::uint64_t bytes, const std::function<void()>& work);

/// Counts what is recorded.
class CountingReporter final : public CrashReporter {
  public:
    void log(std::string_view) override {}

    void recordError(const std::exception&) override { ++errors; }

    void setUserID(const std::optional<std::string>&) override {}

    std::atomic<int> errors = 0;
};

} // namespace velto::test
