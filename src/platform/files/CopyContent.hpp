#pragma once

#include <cstdint>

/// Copies between open regular files at the least cost: shared blocks where the file system has them, else
/// inside the kernel, else by hand. False with `errno` where reading or writing failed. Any thread may call.
namespace velto::files {

/// Makes the empty file `to` a copy of all that `from` holds.
[[nodiscard]] bool copyContent(int from, int to);

/// Appends to `to` up to `length` bytes of `from` from `offset` on, fewer where `from` ends. Leaves the file
/// position of `to` behind them.
[[nodiscard]] bool appendBytes(int from, std::uint64_t offset, std::uint64_t length, int to);

/// The whole of it or false.
[[nodiscard]] bool writeFully(int to, const char* bytes, std::uint64_t count);

} // namespace velto::files
