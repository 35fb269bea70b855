#include "support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

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

std::string runProgram(const std::vector<std::string>& arguments, int* status) {
    const TemporaryFolder folder;
    const std::string out = (folder / "out").string();
    const std::string err = (folder / "err").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    const int failed = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error("cannot start " + arguments.front());
    int result = 0;
    while (waitpid(child, &result, 0) < 0) {
    }
    const int code = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    if (status != nullptr)
        *status = code;
    else if (code != 0)
        throw std::runtime_error(arguments.front() + " failed: " + readFile(err));
    return readFile(out);
}

} // namespace velto::test
