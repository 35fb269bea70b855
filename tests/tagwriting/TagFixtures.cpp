#include "tagwriting/TagFixtures.hpp"

#include "platform/files/ServiceError.hpp"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <csignal>

namespace velto::test {

namespace {

std::string bigEndian(std::size_t value, int bytes) {
    std::string text;
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        text += static_cast<char>(value >> shift & 0xFF);
    return text;
}

} // namespace

std::string synchsafe(std::size_t value) {
    std::string text;
    for (int shift = 21; shift >= 0; shift -= 7)
        text += static_cast<char>(value >> shift & 0x7F);
    return text;
}

std::string tagOf(int version, const std::string& body, int flags) {
    return "ID3" + std::string{static_cast<char>(version), '\0', static_cast<char>(flags)} +
           synchsafe(body.size()) + body;
}

std::string frameOf(int version, std::string_view identifier, const std::string& content,
                    const std::string& flags) {
    const std::string name(identifier);
    if (version == 2) return name + bigEndian(content.size(), 3) + content;
    return name + (version == 4 ? synchsafe(content.size()) : bigEndian(content.size(), 4)) + flags + content;
}

std::string compressed(const std::string& text) {
    std::string packed(::compressBound(text.size()), '\0');
    uLongf length = packed.size();
    ::compress(reinterpret_cast<Bytef*>(packed.data()), &length, reinterpret_cast<const Bytef*>(text.data()),
               text.size());
    packed.resize(length);
    return packed;
}

id3::Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

std::filesystem::path makeSound(const TemporaryFolder& folder, const std::string& name,
                                const std::vector<std::string>& arguments) {
    const auto file = folder / name;
    std::vector<std::string> command{"ffmpeg", "-v",    "error", "-y",
                                     "-f",     "lavfi", "-i",    "anoisesrc=d=1:a=0.3"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.push_back(file.string());
    runProgram(command);
    return file;
}

std::string mutagen(const std::string& script, const std::filesystem::path& file) {
    return runProgram({"/usr/bin/python3", "-c",
                       "import sys\nfrom mutagen.id3 import "
                       "ID3,APIC,COMM,TALB,TBPM,TCON,TIT2,TKEY,TPE1,TPE2,TPOS,TRCK,TXXX\nfrom mutagen.mp3 "
                       "import MP3\npath=sys.argv[1]\n" +
                           script,
                       file.string()});
}

std::string audioOf(const std::filesystem::path& file) {
    const std::string content = readFile(file);
    if (!content.starts_with("ID3")) return content;
    std::size_t size = 0;
    for (std::size_t index = 6; index < 10; ++index)
        size = size << 7 | static_cast<unsigned char>(content.at(index));
    return content.substr(size + 10);
}

bool succeedsWithFileLimit(std::uint64_t bytes, const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);

        const struct ::rlimit limit { bytes, bytes };

        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            work();
            ::_exit(0);
        } catch (const ServiceError& error) {
            ::_exit(error.kind() == ServiceError::Case::metadataWriteFailed ? 1 : 2);
        } catch (...) {
            ::_exit(3);
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace velto::test
