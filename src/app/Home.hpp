#pragma once

#include <filesystem>
#include <optional>

namespace velto {

/// Where the program keeps what is its own. The token is not here: it lies in the secure store.
struct Home {
    std::filesystem::path data;         ///< the folder of the store; small journals lie beside it
    std::filesystem::path store;        ///< the libraries, tracks and playlists
    std::filesystem::path settings;     ///< the folder grants
    std::filesystem::path log;          ///< what the program said
    std::filesystem::path crashReports; ///< error records; they never leave the machine
    std::filesystem::path rewrites;     ///< audio files that are being rewritten right now
    std::filesystem::path backendState; ///< the local backend's accounts and copies
};

/// With `folder`, everything lies below it; without, in the XDG base directories (data, config and state,
/// each in its folder "velto"). Makes nothing.
Home homeAt(const std::optional<std::filesystem::path>& folder);

/// The same, with its folders made (mode 0700). Throws SystemError if one cannot be made.
Home prepareHome(const std::optional<std::filesystem::path>& folder);

} // namespace velto
