#include "platform/core/Date.hpp"
#include "platform/core/Error.hpp"
#include "platform/log/Log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace velto::log {

namespace {

std::string_view nameOf(Level level) {
    switch (level) {
    case Level::info:
        return "INFO ";
    case Level::warning:
        return "WARN ";
    case Level::error:
        return "ERROR ";
    }
    return "";
}

/// The file at one path and the one before it. Used on the log's thread.
class LogFile {
  public:
    LogFile(std::filesystem::path path, std::uint64_t limitBytes)
        : path_(std::move(path))
        , limitBytes_(limitBytes) {
        if (!open()) throw SystemError(errno, "Cannot open the log file", path_.string());
    }

    ~LogFile() { ::close(descriptor_); }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void append(std::string_view block) {
        followPath();
        const auto now =
            std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
        const std::string stamp = iso8601(now) + " ";
        std::string out;
        out.reserve(block.size() * 2);
        while (!block.empty()) {
            const std::string_view line = block.substr(0, block.find('\n') + 1);
            const std::string_view level = nameOf(levelOf(line));
            if (size_ + out.size() + stamp.size() + level.size() + line.size() > limitBytes_) {
                write(std::exchange(out, {}));
                rotate();
            }
            out.append(stamp).append(level).append(line);
            block.remove_prefix(line.size());
        }
        write(out);
    }

  private:
    bool open() {
        // Without O_NONBLOCK a pipe in the file's place would hang the program at its start.
        const int opened =
            ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0600);
        if (opened < 0) return false;
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = opened;
        measure();
        return true;
    }

    void measure() {
        size_ = ::fstat(descriptor_, &file_) == 0 && S_ISREG(file_.st_mode)
                    ? static_cast<std::uint64_t>(file_.st_size)
                    : 0;
    }

    /// Another process may have written to the file, or moved it to begin a new one.
    void followPath() {
        struct ::stat there {};

        const bool isThere = ::stat(path_.c_str(), &there) == 0;
        if (isThere && there.st_dev == file_.st_dev && there.st_ino == file_.st_ino)
            measure();
        else
            (void)open(); // failing that, the lines go on into the file that was moved
    }

    void rotate() {
        // If the folder takes no new name, the file grows on and is tried again at its next limit.
        if (S_ISREG(file_.st_mode) && size_ > 0 &&
            ::rename(path_.c_str(), (path_.string() + ".1").c_str()) == 0)
            (void)open();
        size_ = 0;
    }

    /// What a full or failing disk does not take is lost: the log stops no work.
    void write(std::string_view text) {
        size_ += text.size();
        while (!text.empty()) {
            const ssize_t written = ::write(descriptor_, text.data(), text.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return;
            text.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    std::filesystem::path path_;
    std::uint64_t limitBytes_;
    int descriptor_ = -1;
    struct ::stat file_ {};
    std::uint64_t size_ = 0; ///< bytes in the file, as far as this process knows
};

} // namespace

SinkHandle addFileSink(const std::filesystem::path& path, std::uint64_t limitBytes) {
    const auto file = std::make_shared<LogFile>(path, limitBytes);
    return addSink([file](std::string_view block) { file->append(block); });
}

} // namespace velto::log
