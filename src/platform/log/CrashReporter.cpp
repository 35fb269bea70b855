#include "platform/log/CrashReporter.hpp"

#include "platform/core/Date.hpp"
#include "platform/core/Error.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

namespace velto {

namespace {
constexpr off_t startAfreshAtBytes = off_t{1} << 20;
}

struct FileCrashReporter::State {
    std::filesystem::path path;
    std::mutex mutex;
    int descriptor = -1;

    void write(std::string_view kind, std::string text) {
        std::replace(text.begin(), text.end(), '\n', ' ');
        const auto now =
            std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
        const std::string line = fmt::format("{} {} {}\n", iso8601(now), kind, text);
        const std::lock_guard lock(mutex);
        if (descriptor < 0) return;
        struct ::stat info {};
        if (::fstat(descriptor, &info) == 0 && info.st_size > startAfreshAtBytes)
            (void)!::ftruncate(descriptor, 0);
        (void)!::write(descriptor, line.data(), line.size());
    }
};

FileCrashReporter::FileCrashReporter(std::filesystem::path path)
    : state_(std::make_unique<State>()) {
    state_->path = std::move(path);
    state_->descriptor = ::open(state_->path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

FileCrashReporter::~FileCrashReporter() {
    if (state_->descriptor >= 0) ::close(state_->descriptor);
}

void FileCrashReporter::log(std::string_view text) {
    state_->write("log", std::string(text));
}

void FileCrashReporter::recordError(const std::exception& error) {
    state_->write("error", typeName(error) + ": " + describe(error));
}

void FileCrashReporter::setUserID(const std::optional<std::string>& identifier) {
    state_->write("user", identifier.value_or("-"));
}

} // namespace velto
