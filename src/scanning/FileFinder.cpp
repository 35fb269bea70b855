#include "scanning/FileFinder.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/ChildProcess.hpp"
#include "platform/text/RegularExpression.hpp"
#include "platform/text/Text.hpp"
#include "scanning/Glob.hpp"
#include "scanning/ScannerError.hpp"
#include "store/Library.hpp"

#include <algorithm>
#include <exception>

namespace velto {

namespace {

constexpr std::string_view findProgram = "/usr/bin/find";

/// The exclude patterns, made ready once for many paths.
class ExcludePatterns {
  public:
    explicit ExcludePatterns(std::string_view excludeGlob) {
        for (std::string& piece : splitAndTrim(excludeGlob, ',')) {
            if (piece.find('*') == std::string::npos)
                patterns_.push_back({std::move(piece), std::nullopt});
            else if (auto expression = text::RegularExpression::compile(
                         replaceAll(replaceAll(piece, ".", "\\."), "*", ".*")))
                patterns_.push_back({{}, std::move(expression)});
        }
    }

    [[nodiscard]] bool match(std::string_view path) const {
        return std::any_of(patterns_.begin(), patterns_.end(), [&](const Pattern& pattern) {
            // An empty text is not a part of anything.
            return pattern.expression
                       ? pattern.expression->hasMatch(path)
                       : !pattern.part.empty() && path.find(pattern.part) != std::string_view::npos;
        });
    }

  private:
    struct Pattern {
        std::string part;
        std::optional<text::RegularExpression> expression;
    };

    std::vector<Pattern> patterns_;
};

std::vector<std::string> namePatterns(std::string_view include) {
    const auto list = braceList(include);
    if (!list) return {std::string(include)};
    const std::string prefix(include.substr(0, include.find('{')));
    std::vector<std::string> patterns = splitAndTrim(*list, ',');
    for (std::string& pattern : patterns)
        pattern = prefix + pattern;
    return patterns;
}

std::string findOutput(const FindSettings& settings) {
    std::vector<std::string> arguments = findArguments(settings);
    arguments.emplace(arguments.begin(), findProgram);
    files::ProcessOutput output = files::runProcess(arguments);
    if (output.status != 0) {
        const bool readable = text::isValidUtf8(output.standardError);
        throw ScannerError(ScannerError::Case::commandFailed,
                           "find command failed: " + (readable ? output.standardError : "Unknown error"));
    }
    if (!text::isValidUtf8(output.standardOutput))
        throw ScannerError(ScannerError::Case::commandFailed, "Could not decode find output");
    return std::move(output.standardOutput);
}

} // namespace

std::vector<std::string> findArguments(const FindSettings& settings) {
    std::vector<std::string> arguments{settings.rootPath, "-type", "f"};
    std::string_view separator = "(";
    for (const std::string& pattern :
         namePatterns(settings.includeGlob.value_or(std::string(defaultIncludeGlob)))) {
        arguments.insert(arguments.end(), {std::string(separator), "-name", pattern});
        separator = "-o";
    }
    arguments.emplace_back(")");
    return arguments;
}

std::vector<std::string> findFiles(const FindSettings& settings) {
    std::string output;
    try {
        output = findOutput(settings);
    } catch (const std::exception& failure) {
        throw ScannerError(ScannerError::Case::commandFailed,
                           "Failed to execute find command: " + describe(failure));
    }
    const ExcludePatterns exclude(settings.excludeGlob.value_or(""));
    std::vector<std::string> files;
    for (std::string_view rest = output; !rest.empty();) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = text::trimmedOfBlanks(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (!line.empty() && !exclude.match(line)) files.emplace_back(line);
    }
    return files;
}

bool matchesExcludePattern(std::string_view path, const std::string& excludeGlob) {
    return ExcludePatterns(excludeGlob).match(path);
}

} // namespace velto
