#include "app/LocalBackend.hpp"

#include "platform/core/Error.hpp"

namespace velto {

namespace {
constexpr Seconds startDeadline{10};
}

LocalBackend LocalBackend::start(const std::filesystem::path& stateFile) {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto program = self.parent_path() / "velto-backend";
    if (error || !std::filesystem::exists(program, error))
        throw Error("The local backend is not there: " + program.string() +
                    ". Reinstall the program, or name a backend with --backend URL.");
    auto process = files::ChildProcess::start(
        {program.string(), "--port", "0", "--exit-with-stdin", "--quiet", "--state", stateFile.string()});
    const auto address = process.readFirstLine(startDeadline);
    if (!address || !address->starts_with("http://"))
        throw Error("The local backend did not start. Its state is in " + stateFile.string() + ".");
    return {std::move(process), *address};
}

} // namespace velto
