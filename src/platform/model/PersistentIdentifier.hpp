#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace velto::model {

/// Says which object of the store is meant. An object gets its lasting value when it is inserted, before any
/// save; it is the same after a save and in every later run, and no other object of the store gets the one
/// that a saved object had. An object that was never inserted has a provisional one that holds until its
/// insertion.
class PersistentIdentifier {
  public:
    PersistentIdentifier() = default;

    PersistentIdentifier(std::uint32_t entityTag, std::int64_t row)
        : row_(row)
        , entityTag_(entityTag) {}

    /// The same number in every run for the same object; other objects get others for all practical purposes.
    [[nodiscard]] std::int64_t hash() const {
        auto bits = static_cast<std::uint64_t>(row_) + (static_cast<std::uint64_t>(entityTag_) << 32U) +
                    0x9E3779B97F4A7C15ULL;
        bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9ULL;
        bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBULL;
        return static_cast<std::int64_t>(bits ^ (bits >> 31U));
    }

    [[nodiscard]] std::int64_t row() const { return row_; }

    auto operator<=>(const PersistentIdentifier&) const = default;

  private:
    std::int64_t row_ = 0;
    std::uint32_t entityTag_ =
        0; ///< derived from the entity's name alone: reaches the backend, do not change
};

} // namespace velto::model

template <>
struct std::hash<velto::model::PersistentIdentifier> {
    std::size_t operator()(const velto::model::PersistentIdentifier& identifier) const noexcept {
        return static_cast<std::size_t>(identifier.hash());
    }
};
