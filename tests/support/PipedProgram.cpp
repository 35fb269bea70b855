#include "support/PipedProgram.hpp"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <unistd.h>

extern char** environ;

namespace velto::test {

PipedProgram startPiped(const std::vector<std::string>& arguments, int stream) {
    std::array<int, 2> input{}, output{};
    if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    PipedProgram program{-1, files::Descriptor(input[1]), files::Descriptor(output[0])};
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], stream);
    const int failure = posix_spawn(&program.process, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    if (failure != 0) throw std::runtime_error("cannot start " + arguments.front());
    return program;
}

std::vector<pid_t> childrenOf(pid_t process) {
    std::vector<pid_t> found;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream list(task.path() / "children");
        for (pid_t child = 0; list >> child;)
            found.push_back(child);
    }
    return found;
}

} // namespace velto::test
