#include "support/Sql.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace velto::test {

std::string sql(const std::filesystem::path& store, const std::string& text) {
    sqlite3* connection = nullptr;
    EXPECT_EQ(sqlite3_open(store.c_str(), &connection), SQLITE_OK);
    sqlite3_busy_timeout(connection, 5000);
    std::string result;
    const auto keep = [](void* target, int, char** values, char**) {
        auto& kept = *static_cast<std::string*>(target);
        if (kept.empty() && values[0] != nullptr) kept = values[0];
        return 0;
    };
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(connection, text.c_str(), keep, &result, &error), SQLITE_OK) << error;
    sqlite3_free(error);
    sqlite3_close(connection);
    return result;
}

Obstacle::Obstacle(std::filesystem::path store, const std::string& event)
    : store_(std::move(store)) {
    sql(store_, "CREATE TRIGGER obstacle BEFORE " + event + " BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
}

Obstacle::~Obstacle() {
    sql(store_, "DROP TRIGGER obstacle");
}

} // namespace velto::test
