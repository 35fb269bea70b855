#pragma once

#include "platform/model/Entity.hpp"
#include "platform/model/ObjectTable.hpp"

#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto::model {

/// Finds an entity's objects by their unique attributes. Built at the first look-up; from then on it follows
/// insertions, removals and changes.
class UniqueIndex {
  public:
    UniqueIndex(const EntityDescription& entity, const ObjectTable& table);

    /// The object whose attribute has this value (for UUIDs: its 16 bytes); null where there is none.
    [[nodiscard]] Object* find(std::string_view attribute, std::string_view value);

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

    void build();
    void settle();
    [[nodiscard]] std::vector<Hash> hashes(Object& object) const;
    void put(Object& object, const std::vector<Hash>& hashes);
    void take(Object& object, const std::vector<Hash>& hashes);

    const ObjectTable& table_;
    std::vector<Attribute> attributes_;
    std::vector<Touched> touched_;
    bool isBuilt_ = false;
};

} // namespace velto::model
