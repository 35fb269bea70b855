#include "scanning/FileSignatureGenerator.hpp"

#include "platform/files/Sha256.hpp"

#include <fmt/format.h>

#include <iterator>
#include <string_view>

namespace velto {

namespace {
/// Stored with every file: another length would make every file count as changed. Do not change.
constexpr std::size_t signatureBytes = 8;
} // namespace

std::string SHA256SignatureGenerator::quickSig(const FileSystemInfo& file) const {
    const std::int64_t wholeSeconds = microsecondsSince1970(file.mtime) / 1'000'000; // towards zero
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "{}|{}|{}", file.sizeBytes, wholeSeconds, file.relPath);
    if (file.inode) fmt::format_to(std::back_inserter(text), "|{}", *file.inode);
    return files::hexadecimal(files::sha256(std::string_view(text.data(), text.size())), signatureBytes);
}

} // namespace velto
