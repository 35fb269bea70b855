#pragma once

#include "platform/concurrency/Executors.hpp"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace velto {

/// Small values that outlive the program (folder grants), by key, in one file that is replaced as a whole:
/// after a crash it holds either the old values or the new. Confined to the main actor; only the writing of
/// the file runs on the pool. The file has mode 0600. One process at a time.
class ValueFile {
  public:
    using Bytes = std::vector<std::uint8_t>;

    /// Reads `file` (absent: no values). A file that makes no sense is renamed to "<file>.damaged-<seconds
    /// since 1970>", with a log line, and the values start empty. They also do if an existing file
    /// cannot be read at all; every write then fails, so that nothing in it is lost.
    ValueFile(std::filesystem::path file, Executors executors);
    ~ValueFile();
    ValueFile(const ValueFile&) = delete;
    ValueFile& operator=(const ValueFile&) = delete;

    /// Absent if the key has no value or one of the other kind.
    [[nodiscard]] std::optional<Bytes> data(const std::string& key) const;
    [[nodiscard]] std::optional<std::string> string(const std::string& key) const;
    [[nodiscard]] std::vector<std::string> keys() const;

    /// The new value is readable as soon as the task runs, and on the disk when it ends. Throws Error
    /// if the file cannot be written: the value then holds until the program ends or a later write
    /// succeeds. Texts are UTF-8.
    Task<void> setData(std::string key, Bytes value);
    Task<void> setString(std::string key, std::string value);
    Task<void> remove(std::string key);

  private:
    using Value = std::variant<std::string, Bytes>;
    struct Writer;

    void take(const std::string& content);
    Task<void> write();

    Executors executors_;
    std::map<std::string, Value> values_;
    std::shared_ptr<Writer> writer_;
};

} // namespace velto
