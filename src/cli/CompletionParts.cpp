#include "cli/CompletionParts.hpp"

namespace velto::cli {

namespace {

void addPlaces(std::vector<Place>& places, const std::string& path, const CommandEntry& command) {
    places.push_back({path, &command});
    for (const auto& below : command.commands)
        addPlaces(places, path + " " + below.name, below);
}

} // namespace

std::vector<Place> placesOf(const CommandEntry& program) {
    std::vector<Place> places;
    addPlaces(places, "", program);
    return places;
}

std::set<std::string> optionsWith(const std::vector<Place>& places, const std::set<ValueKind>& kinds) {
    std::set<std::string> names;
    for (const auto& place : places)
        for (const auto& option : place.command->options)
            if (kinds.contains(option.value)) names.insert(option.names.begin(), option.names.end());
    return names;
}

std::set<std::string> optionsWithValue(const std::vector<Place>& places) {
    return optionsWith(places, {ValueKind::text, ValueKind::folder, ValueKind::file, ValueKind::library});
}

std::vector<std::string> quotedPaths(const std::vector<Place>& places, char quote) {
    std::vector<std::string> quoted;
    for (const auto& place : places)
        if (!place.path.empty()) quoted.push_back(quote + place.path + quote);
    return quoted;
}

std::string replaced(std::string text, std::string_view what, std::string_view by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

} // namespace velto::cli
