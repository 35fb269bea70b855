#pragma once

#include "store/FileSystemInfo.hpp"

#include <string>

namespace velto {

/// Fingerprints a file as it is, from its attributes alone.
class FileSignatureGenerator {
  public:
    virtual ~FileSignatureGenerator() = default;

    /// 16 lower-case hexadecimal digits that change with the file's length, its modification time (in whole
    /// seconds), its place in the library or its name. Reads nothing from disk; any thread.
    [[nodiscard]] virtual std::string quickSig(const FileSystemInfo& file) const = 0;
};

class SHA256SignatureGenerator final : public FileSignatureGenerator {
  public:
    [[nodiscard]] std::string quickSig(const FileSystemInfo& file) const override;
};

} // namespace velto
