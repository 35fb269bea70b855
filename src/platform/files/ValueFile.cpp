#include "platform/files/ValueFile.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/AtomicReplace.hpp"
#include "platform/files/Base64.hpp"
#include "platform/files/Descriptor.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/Text.hpp"

#include <fcntl.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace velto {

namespace {

using nlohmann::json;

/// A version that this program does not know counts as damaged: the file is set aside, never overwritten.
constexpr int formatVersion = 1;
constexpr std::size_t fileLimitBytes = std::size_t{64} << 20;

ValueFile::Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

/// A key may carry a folder's name, whose bytes need not be text.
json encodedKey(const std::string& key) {
    if (text::isValidUtf8(key)) return key;
    return {{"base64", files::base64(bytesOf(key))}};
}

std::string decodedKey(const json& encoded) {
    if (encoded.is_string()) return encoded.get<std::string>();
    const ValueFile::Bytes bytes = files::fromBase64(encoded.at("base64").get<std::string>());
    return {bytes.begin(), bytes.end()};
}

std::optional<std::string> readWhole(const std::filesystem::path& path) {
    const files::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && errno == ENOENT) return std::nullopt;
    if (!file) throw SystemError(errno, "Cannot read", path.string());
    std::string content;
    std::array<char, 65'536> block{};
    while (content.size() <= fileLimitBytes) {
        const ssize_t count = ::read(file.get(), block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw SystemError(errno, "Cannot read", path.string());
        if (count == 0) break;
        content.append(block.data(), static_cast<std::size_t>(count));
    }
    return content;
}

template <typename Values>
std::string encoded(const Values& values) {
    json entries = json::array();
    for (const auto& [key, value] : values) {
        json entry = {{"key", encodedKey(key)}};
        if (const auto* bytes = std::get_if<ValueFile::Bytes>(&value))
            entry["data"] = files::base64(*bytes);
        else
            entry["text"] = std::get<std::string>(value);
        entries.push_back(std::move(entry));
    }
    const json whole = {{"version", formatVersion}, {"values", std::move(entries)}};
    return whole.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

template <typename Values>
Values decoded(const std::string& content) {
    if (content.size() > fileLimitBytes) throw std::runtime_error("it is too long");
    const json whole = json::parse(content);
    if (whole.at("version").get<int>() != formatVersion) throw std::runtime_error("its version is unknown");
    Values values;
    for (const json& entry : whole.at("values")) {
        const std::string key = decodedKey(entry.at("key"));
        if (entry.contains("data"))
            values[key] = files::fromBase64(entry["data"].get<std::string>());
        else
            values[key] = entry.at("text").get<std::string>();
    }
    return values;
}

void setAside(const std::filesystem::path& file, const std::exception& reason) {
    const std::string aside = file.string() + ".damaged-" + std::to_string(std::time(nullptr));
    if (::rename(file.c_str(), aside.c_str()) != 0) throw SystemError(errno, "Cannot rename", file.string());
    log::line("⚠️ [DEFAULTS] The user defaults are damaged and start empty; the old file is now {}: {}",
              aside, describe(reason));
}

} // namespace

/// Brings states of the values to the disk in the order in which they were made, from any thread of the pool.
struct ValueFile::Writer {
    std::filesystem::path file;
    std::string refusal; ///< why nothing is written; empty if all is well. Set once.
    std::mutex mutex;
    std::uint64_t written = 0;
    std::uint64_t made = 0; ///< main actor only

    template <typename Values>
    void write(std::uint64_t number, const Values& values) {
        if (!refusal.empty()) throw Error(refusal);
        const std::lock_guard lock(mutex);
        if (number <= written) return; // a later state, which holds this one, is on the disk
        files::replaceFile(file, encoded(values));
        written = number;
    }
};

ValueFile::ValueFile(std::filesystem::path file, Executors executors)
    : executors_(std::move(executors))
    , writer_(std::make_shared<Writer>()) {
    writer_->file = std::move(file);
    try {
        const auto content = readWhole(writer_->file);
        if (content) take(*content);
    } catch (const SystemError& error) {
        writer_->refusal = describe(error); // what may be there is not overwritten
        log::line("⚠️ [DEFAULTS] The user defaults start empty and are not kept: {}", describe(error));
    }
}

ValueFile::~ValueFile() = default;

void ValueFile::take(const std::string& content) {
    try {
        values_ = decoded<decltype(values_)>(content);
    } catch (const std::exception& reason) {
        setAside(writer_->file, reason);
    }
}

std::optional<ValueFile::Bytes> ValueFile::data(const std::string& key) const {
    const auto found = values_.find(key);
    const Bytes* bytes = found == values_.end() ? nullptr : std::get_if<Bytes>(&found->second);
    return bytes == nullptr ? std::nullopt : std::optional(*bytes);
}

std::optional<std::string> ValueFile::string(const std::string& key) const {
    const auto found = values_.find(key);
    const std::string* text = found == values_.end() ? nullptr : std::get_if<std::string>(&found->second);
    return text == nullptr ? std::nullopt : std::optional(*text);
}

std::vector<std::string> ValueFile::keys() const {
    std::vector<std::string> all;
    for (const auto& [key, value] : values_)
        all.push_back(key);
    return all;
}

Task<void> ValueFile::setData(std::string key, Bytes value) {
    values_[std::move(key)] = std::move(value);
    co_await write();
}

Task<void> ValueFile::setString(std::string key, std::string value) {
    values_[std::move(key)] = std::move(value);
    co_await write();
}

Task<void> ValueFile::remove(std::string key) {
    if (values_.erase(key) == 0) co_return;
    co_await write();
}

Task<void> ValueFile::write() {
    const auto writing = [writer = writer_, number = ++writer_->made, values = values_] {
        writer->write(number, values);
    };
    co_await offload(executors_, writing);
}

} // namespace velto
