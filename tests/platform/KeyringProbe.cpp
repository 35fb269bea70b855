// keyring_probe LIMIT COMMAND...: runs "save=TOKEN", "get", "delete", "get@ACCOUNT", "lock" and "storm"
// (four threads at once) on the keyring of its session, one line each. A program of its own, since a process
// has one session bus.

#include "platform/keyring/SecretServiceKeyring.hpp"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using velto::SecretServiceKeyring;

std::string storm(SecretServiceKeyring& keyring) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&keyring] {
            for (int round = 0; round < 10; ++round)
                if (keyring.retrieveToken() != "storm") std::abort();
        });
    for (std::thread& thread : threads)
        thread.join();
    return "calm";
}

std::string run(SecretServiceKeyring& keyring, velto::Seconds limit, std::string_view command) {
    if (command.starts_with("save=")) {
        keyring.saveToken(std::string(command.substr(5)));
        return "saved";
    }
    if (command == "get") return keyring.retrieveToken().value_or("(absent)");
    if (command.starts_with("get@"))
        return SecretServiceKeyring("com.velto.desktop", std::string(command.substr(4)), limit)
            .retrieveToken()
            .value_or("(absent)");
    if (command == "storm") return storm(keyring);
    if (command == "lock") {
        constexpr auto lock =
            "gdbus call --session --dest org.freedesktop.secrets --object-path /org/freedesktop/secrets "
            "--method org.freedesktop.Secret.Service.Lock \"['/org/freedesktop/secrets/collection/login']\" "
            ">/dev/null";
        return std::system(lock) == 0 ? "locked" : "cannot lock"; // NOLINT: a fixed text
    }
    if (command != "delete") throw std::invalid_argument("no such command");
    keyring.deleteToken();
    return "deleted";
}

} // namespace

int main(int argc, char** argv) {
    const velto::Seconds limit(std::strtod(argv[1], nullptr));
    SecretServiceKeyring keyring("com.velto.desktop", "jwt_token", limit);
    for (int i = 2; i < argc; ++i) {
        try {
            std::puts(run(keyring, limit, argv[i]).c_str());
        } catch (const std::exception& error) {
            std::puts(error.what());
        }
    }
}
