#include "scanning/Glob.hpp"

#include "platform/text/PathParts.hpp"
#include "platform/text/Text.hpp"

#include <algorithm>

namespace velto {

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    for (auto at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
        out.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return out.append(text);
}

std::vector<std::string> splitAndTrim(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    while (true) {
        const auto end = text.find(separator);
        pieces.emplace_back(text::trimmedOfBlanks(text.substr(0, end)));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::optional<std::string_view> braceList(std::string_view pattern) {
    const auto open = pattern.find('{'), close = pattern.find('}');
    if (open == std::string_view::npos || close == std::string_view::npos) return std::nullopt;
    return close < open ? std::string_view() : pattern.substr(open + 1, close - open - 1);
}

Glob::Glob(std::string_view pattern) {
    if (const auto list = braceList(pattern)) {
        byExtension_ = true;
        for (const std::string& piece : splitAndTrim(*list, ','))
            extensions_.push_back(text::lowercased(piece));
    } else if (pattern.starts_with("*.")) {
        byExtension_ = true;
        extensions_.push_back(text::lowercased(pattern.substr(2)));
    } else {
        const std::string dotsEscaped = replaceAll(pattern, ".", "\\.");
        const std::string expression = replaceAll(replaceAll(dotsEscaped, "*", ".*"), "?", ".");
        expression_ = text::RegularExpression::compile("^" + expression + "$");
        substring_ = replaceAll(pattern, "*", "");
    }
}

bool Glob::matches(std::string_view path) const {
    if (byExtension_) {
        const std::string extension = lowercasedExtension(path);
        return std::find(extensions_.begin(), extensions_.end(), extension) != extensions_.end();
    }
    const std::string name = text::lowercased(lastPathComponent(path));
    return expression_ ? expression_->hasMatch(name) : name.find(substring_) != std::string::npos;
}

} // namespace velto
