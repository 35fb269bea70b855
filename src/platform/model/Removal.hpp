#pragma once

#include "platform/model/ModelContext.hpp"
#include "platform/model/RowCodec.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <unordered_set>
#include <vector>

namespace velto::model {

/// The objects that one removeInBackground() takes along by the delete rules. They stay what they are until
/// apply(), when their rows are gone. Main actor, but rows() may be called and the object destroyed on any
/// thread.
class Removal {
  public:
    Removal(ModelContext& context, std::vector<Ref<Object>> objects);

    /// The objects that were given to it, when nothing comes of it.
    [[nodiscard]] std::vector<Ref<Object>> giveBack() { return std::move(objects_); }

    /// Looks through the objects and their lists, at `room` objects at most, which it counts down; false if
    /// more are left.
    bool find(std::size_t& room);

    /// The object is about to be written: if its owner goes, it goes as well.
    void follow(Object& object);

    [[nodiscard]] bool takes(const Object& object) const { return taken_.contains(&object); }

    /// The store must not keep a link to a row that goes.
    void cutLinks(Object& object, CapturedRow& row) const;

    /// What stays and is related to something that goes, in the order in which it was found.
    [[nodiscard]] const std::vector<Ref<Object>>& survivors() const { return survivors_; }

    /// The row ids of what goes, by entity. Rows that were never written are among them.
    [[nodiscard]] const std::vector<std::vector<std::int64_t>>& rows() const { return rows_; }

    /// The rows are deleted: takes some objects out of the context; true while there are more.
    bool apply(std::size_t most);

  private:
    static constexpr std::size_t allSlots = std::numeric_limits<std::size_t>::max();

    void take(Object& object);

    ModelContext& context_;
    ModelContext::State& state_;
    std::vector<Ref<Object>> objects_; ///< as given
    std::vector<Ref<Object>> found_;   ///< owners before what they take along, as far as they led to it
    std::unordered_set<const Object*> taken_;
    std::vector<std::vector<std::int64_t>> rows_;
    std::vector<Ref<Object>> survivors_;
    // Where find() goes on: the object given, the object found, its list, and how many of the list's slots
    // are left. It goes from the end to the beginning: a list that closes its gaps meanwhile only moves
    // members to the front, and a member that is added meanwhile is pending, so that follow() sees it.
    std::size_t given_ = 0;
    std::size_t next_ = 0;
    std::size_t list_ = 0;
    std::size_t slots_ = allSlots;
    // How far apply() has come.
    std::size_t unstored_ = 0;
    std::size_t expelled_ = 0;
};

} // namespace velto::model
