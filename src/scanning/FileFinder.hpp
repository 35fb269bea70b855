#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// What the finder goes by.
struct FindSettings {
    std::string rootPath;
    std::optional<std::string> includeGlob; ///< absent: `defaultIncludeGlob`
    std::optional<std::string> excludeGlob;
};

/// Arguments for the system's find tool, the program's own name left out.
[[nodiscard]] std::vector<std::string> findArguments(const FindSettings& settings);

/// Runs the tool and gives the paths of the files that it sees, those that the exclude pattern takes left
/// out, in its order. Blocks: call it on the pool. Throws ScannerError commandFailed.
[[nodiscard]] std::vector<std::string> findFiles(const FindSettings& settings);

/// Whether one of the patterns between the commas takes `path` (absolute): one with a "*" as an expression
/// found anywhere in it, ignoring case; another as a part of it, case kept.
[[nodiscard]] bool matchesExcludePattern(std::string_view path, const std::string& excludeGlob);

} // namespace velto
