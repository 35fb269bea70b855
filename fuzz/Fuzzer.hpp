#pragma once

#include <cstdint>
#include <span>

/// Every entry defines this: gives `input` to the code under test. Foreign bytes may be refused with the
/// errors that the code documents; anything else (a crash, a hang, a broken promise) is a finding: call
/// `fuzz::require` for promises.
void fuzzOne(std::span<const std::uint8_t> input);

namespace fuzz {

/// Ends the program if a promise is broken.
void require(bool promise, const char* what);

} // namespace fuzz
