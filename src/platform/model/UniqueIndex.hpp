#pragma once

#include "platform/model/Entity.hpp"
#include "platform/model/ObjectTable.hpp"

#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// Finds an entity's objects by their unique attributes. Built by build() in as many steps as its caller
/// likes, or by the first look-up; from the first step on it follows insertions, removals and changes.
class UniqueIndex {
  public:
    UniqueIndex(const EntityDescription& entity, const ObjectTable& table);

    /// The object whose attribute has this value (for UUIDs: its 16 bytes); null if there is none.
    [[nodiscard]] Object* find(std::string_view attribute, std::string_view value);

    /// Indexes at most `most` further objects; false if none were left.
    bool build(std::size_t most);

    /// Makes room for so many objects at once: growing step by step takes long if there are many.
    void reserve(std::size_t count);

    void insert(Object& object);
    void remove(Object& object);

    /// Comes before a change: the object's values are looked at again before the next look-up.
    void touch(const Object& object);

  private:
    using Hash = std::size_t;

    struct Attribute {
        const AttributeDescription* description;
        std::unordered_multimap<Hash, Object*> objects; ///< by the hash of the value
    };

    struct Touched {
        Object* object;
        std::vector<Hash> hashes; ///< of the values under which it is indexed
    };

    /// Objects beyond the last one indexed get their turn by build().
    [[nodiscard]] bool isIndexed(const Object& object) const;
    void settle();
    [[nodiscard]] std::vector<Hash> hashes(Object& object) const;
    void put(Object& object, const std::vector<Hash>& hashes);
    void take(Object& object, const std::vector<Hash>& hashes);

    const ObjectTable& table_;
    std::vector<Attribute> attributes_;
    std::vector<Touched> touched_;
    std::int64_t lastIndexed_ = 0; ///< row id
    bool isBuilt_ = false;
};

} // namespace velto::model
