#pragma once

#include "platform/model/Object.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velto::model {

/// Owns the objects of one entity, in the order of their row ids, which is that of their insertion.
class ObjectTable {
  public:
    ObjectTable() = default;
    ObjectTable(ObjectTable&& other) noexcept = default;
    ObjectTable& operator=(ObjectTable&& other) = delete;
    /// Takes all objects out of their context, undoes their relationships, and drops them.
    ~ObjectTable();

    /// Appends and retains; the object gets the next row id.
    void insert(Object& object);
    /// Appends an object that carries its row id already, and takes over its maker's reference.
    void adopt(Object& object);
    /// Takes the object out; the caller gets the table's reference.
    void remove(const Object& object);

    [[nodiscard]] Object* find(std::int64_t row) const;

    [[nodiscard]] std::size_t size() const { return entries_.size() - holes_; }

    /// `visit(Object&)` for each object that is there at the start and still there at its turn.
    template <typename F>
    void forEach(F visit) const {
        const std::size_t end = entries_.size();
        for (std::size_t i = 0; i < end && i < entries_.size(); ++i)
            if (entries_[i].object != nullptr) visit(*entries_[i].object);
    }

    /// `visit(Object&)` for the first objects, at most `most`, with row ids above `row`; returns their
    /// number.
    template <typename F>
    std::size_t visitAfter(std::int64_t row, std::size_t most, F visit) const {
        std::size_t visited = 0;
        for (std::size_t i = placeAfter(row); i < entries_.size() && visited < most; ++i) {
            if (entries_[i].object == nullptr) continue;
            visit(*entries_[i].object);
            ++visited;
        }
        return visited;
    }

    /// Row ids up to this one are not given again.
    void useUp(std::int64_t row) { nextRow_ = std::max(nextRow_, row + 1); }

    void swap(ObjectTable& other) noexcept;

    /// Closes the gaps if there are many. Not while iterating.
    void tidy();

  private:
    struct Entry {
        std::int64_t row;
        Object* object; ///< null: was removed
    };

    [[nodiscard]] const Entry* entry(std::int64_t row) const;
    /// Where the entries with row ids above this one begin.
    [[nodiscard]] std::size_t placeAfter(std::int64_t row) const;

    std::vector<Entry> entries_;
    std::size_t holes_ = 0;
    std::int64_t nextRow_ = 1;
};

} // namespace velto::model
