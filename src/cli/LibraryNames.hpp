#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace velto::cli {

/// The names of the libraries in a store, sorted, for a shell to offer. Nothing if the store cannot be read.
/// Takes no lock and writes nothing, so it may run beside any command: it sees what the last one that ended
/// has left. Names that are more than one printable line are left out. Blocks for a few milliseconds.
[[nodiscard]] std::vector<std::string> libraryNames(const std::filesystem::path& store);

} // namespace velto::cli
