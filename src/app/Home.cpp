#include "app/Home.hpp"

#include "platform/core/Error.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace velto {

namespace {

using std::filesystem::path;

path baseDirectory(const char* variable, const char* belowHome) {
    if (const char* set = std::getenv(variable); set != nullptr && *set == '/') return path(set) / "velto";
    const char* home = std::getenv("HOME");
    return path(home != nullptr && *home == '/' ? home : "/") / belowHome / "velto";
}

void makePrivateFolder(const path& folder) {
    if (folder.has_parent_path() && folder.parent_path() != folder) {
        std::error_code error;
        std::filesystem::create_directories(folder.parent_path(), error);
        if (error) throw SystemError(error.value(), "Cannot make the folder", folder.parent_path().string());
    }
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throw SystemError(errno, "Cannot make the folder", folder.string());
    struct ::stat info {};
    if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        throw SystemError(ENOTDIR, "Cannot use the folder", folder.string());
}

} // namespace

Home homeAt(const std::optional<path>& folder) {
    path data, config, state;
    if (folder) {
        data = config = state = std::filesystem::absolute(*folder).lexically_normal();
        if (!data.has_filename()) data = config = state = data.parent_path();
    } else {
        data = baseDirectory("XDG_DATA_HOME", ".local/share");
        config = baseDirectory("XDG_CONFIG_HOME", ".config");
        state = baseDirectory("XDG_STATE_HOME", ".local/state");
    }
    return {
        .data = data,
        .store = data / "velto.store",
        .settings = config / "defaults.json",
        .log = state / "velto.log",
        .crashReports = state / "crash-reports.log",
        .rewrites = data / "rewrites.journal",
        .backendState = data / "local-backend.sqlite",
    };
}

Home prepareHome(const std::optional<path>& folder) {
    Home home = homeAt(folder);
    for (const path& file : {home.store, home.settings, home.log})
        makePrivateFolder(file.parent_path());
    return home;
}

} // namespace velto
