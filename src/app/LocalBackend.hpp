#pragma once

#include "platform/files/ChildProcess.hpp"

#include <filesystem>
#include <string>

namespace velto {

/// The backend that comes with the program, as a child process on an ephemeral loopback port. It ends with
/// this object, and with this process when that is killed: it watches its standard input.
class LocalBackend {
  public:
    /// Starts `velto-backend`, which lies beside this program, with its state in `stateFile`, and waits for
    /// the address that it prints. Blocks up to 10 s. Throws Error with a text for the user.
    static LocalBackend start(const std::filesystem::path& stateFile);

    /// "http://127.0.0.1:PORT", without a slash at its end.
    [[nodiscard]] const std::string& address() const { return address_; }

  private:
    LocalBackend(files::ChildProcess process, std::string address)
        : process_(std::move(process))
        , address_(std::move(address)) {}

    files::ChildProcess process_;
    std::string address_;
};

} // namespace velto
