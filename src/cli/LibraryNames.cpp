#include "cli/LibraryNames.hpp"

#include "platform/model/Sqlite.hpp"
#include "platform/text/Printable.hpp"

#include <exception>

namespace velto::cli {

namespace {

/// A path as the part of an SQLite URI.
std::string escaped(const std::string& path) {
    constexpr auto digits = "0123456789ABCDEF";
    std::string out;
    for (const char c : path) {
        if (c != '%' && c != '?' && c != '#') {
            out += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        out += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
    }
    return out;
}

} // namespace

std::vector<std::string> libraryNames(const std::filesystem::path& store) {
    std::vector<std::string> names;
    try {
        // "immutable": no lock, and no write-ahead log beside the file.
        model::Database database("file:" + escaped(store.string()) + "?immutable=1", store,
                                 SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
        model::Statement rows(database, "SELECT name FROM Library ORDER BY name");
        while (rows.step()) {
            std::string name(rows.text(0));
            if (text::printable(name) == name) names.push_back(std::move(name));
        }
    } catch (const std::exception&) { // a shell that offers nothing has not failed
        names.clear();
    }
    return names;
}

} // namespace velto::cli
