#pragma once

#include <filesystem>
#include <string>

namespace velto::test {

/// Runs SQL on a connection of its own, as any other program could; the first column of the first row. Fails
/// the test if it cannot.
std::string sql(const std::filesystem::path& store, const std::string& text);

/// A store that lets nothing be done to a table while it lives: `event` is "INSERT ON Book", say.
class Obstacle {
  public:
    Obstacle(std::filesystem::path store, const std::string& event);
    Obstacle(const Obstacle&) = delete;
    Obstacle& operator=(const Obstacle&) = delete;
    ~Obstacle();

  private:
    std::filesystem::path store_;
};

} // namespace velto::test
