#pragma once

#include <cstdint>

/// Copies between open regular files at the least cost: shared blocks if the file system has them, else
/// inside the kernel, else by hand. Blocks. False with `errno` if reading or writing failed. Any thread may
/// call.
namespace velto::files {

/// Makes the empty file `to` a copy of all that `from` holds.
[[nodiscard]] bool copyContent(int from, int to);

/// Appends to `to` up to `length` bytes of `from` from `offset` on, fewer if `from` ends. Leaves the file
/// position of `to` at their end.
[[nodiscard]] bool appendBytes(int from, std::uint64_t offset, std::uint64_t length, int to);

/// Writes all `count` bytes, or returns false.
[[nodiscard]] bool writeFully(int to, const char* bytes, std::uint64_t count);

} // namespace velto::files
