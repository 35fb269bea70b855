#pragma once

#include <string>
#include <string_view>

namespace velto {

/// The name that a backend's token is kept under: the base address in one spelling, with scheme and host in
/// lower case and without user, password, the scheme's own port and slashes at its end. Two addresses with
/// one name are one backend; another port or path is another backend. Text that is not an address is its own
/// name.
[[nodiscard]] std::string backendName(std::string_view address);

/// "localhost", 127.x.y.z and [::1] at whatever port: what is sent there stays on this computer.
[[nodiscard]] bool isOnThisComputer(std::string_view address);

/// Whether a token on its way to the address could be read by others: plain http:// to another computer.
[[nodiscard]] bool isOpenToOthers(std::string_view address);

} // namespace velto
