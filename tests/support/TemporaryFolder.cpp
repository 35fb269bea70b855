#include "support/TemporaryFolder.hpp"

#include "platform/files/ChildProcess.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace velto::test {

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velto-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    using namespace std::filesystem;
    for (auto it = recursive_directory_iterator(path_, directory_options::skip_permission_denied, ignored);
         !ignored && it != recursive_directory_iterator(); it.increment(ignored))
        if (it->is_directory(ignored) && !it->is_symlink(ignored))
            permissions(it->path(), perms::owner_all, perm_options::add, ignored);
    remove_all(path_, ignored);
}

std::filesystem::path TemporaryFolder::write(std::string_view relativePath, std::string_view content) const {
    const std::filesystem::path target = path_ / relativePath;
    std::filesystem::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << content;
    return target;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string runProgram(std::vector<std::string> arguments, int* status) {
    arguments.insert(arguments.begin(), "/usr/bin/env"); // finds it on the path
    auto output = files::runProcess(arguments);
    if (status != nullptr)
        *status = output.status;
    else if (output.status != 0)
        throw std::runtime_error(arguments[1] + " failed: " + output.standardError);
    return std::move(output.standardOutput);
}

} // namespace velto::test
