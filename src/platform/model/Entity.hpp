#pragma once

#include "platform/core/Date.hpp"
#include "platform/model/Relationships.hpp"
#include "platform/model/Uuid.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace velto::model {

/// What an attribute holds, and as what the store keeps it.
enum class AttributeKind : std::uint8_t {
    text,        ///< std::string, TEXT
    integer,     ///< std::int64_t, INTEGER
    real,        ///< double, REAL
    boolean,     ///< bool, INTEGER 0 or 1
    date,        ///< Date, INTEGER microseconds since 1970 UTC
    uuid,        ///< Uuid, TEXT of 36 characters
    textList,    ///< std::vector<std::string>, TEXT with a JSON array
    enumeration, ///< an enumeration with rawValue() and allCases(), TEXT
};

struct AttributeDescription {
    std::string name;
    AttributeKind kind;
    bool isOptional;
    bool isUnique;
    /// Where the value lies: a T* or std::optional<T>* by kind and isOptional.
    void* (*address)(Object&);
    /// Makes the value empty, or absent if it is optional.
    void (*clear)(Object&);
    /// For enumerations: the raw value (none if absent), and an assignment that refuses unknown texts.
    std::optional<std::string_view> (*rawValue)(const Object&) = nullptr;
    bool (*assignRawValue)(Object&, std::string_view) = nullptr;
};

/// What deleting the owner of a list does to its members.
enum class DeleteRule : std::uint8_t { nullify, cascade };

struct RelationshipDescription {
    std::string name;
    bool isToMany;
    DeleteRule deleteRule; ///< of lists; the single-valued side carries none
    const EntityDescription& (*target)();
    ToOneBase& (*toOne)(Object&);   ///< the single-valued end: of the owner, or for a list of its members
    ToManyBase& (*toMany)(Object&); ///< the list end: of the owner, or for a single value of its target
};

/// All that the model layer knows of an entity. Tables, reading, writing, unique checks and delete rules
/// follow from it.
class EntityDescription {
  public:
    EntityDescription(std::string name, Object* (*maker)());

    [[nodiscard]] const std::string& name() const { return name_; }

    [[nodiscard]] std::uint32_t tag() const { return tag_; }

    [[nodiscard]] const std::vector<AttributeDescription>& attributes() const { return attributes_; }

    [[nodiscard]] const std::vector<RelationshipDescription>& toOnes() const { return toOnes_; }

    [[nodiscard]] const std::vector<RelationshipDescription>& toManys() const { return toManys_; }

    [[nodiscard]] Object* makeEmpty() const { return makeEmpty_(); }

    void add(AttributeDescription attribute) { attributes_.push_back(std::move(attribute)); }

    void add(RelationshipDescription relationship) {
        (relationship.isToMany ? toManys_ : toOnes_).push_back(std::move(relationship));
    }

  private:
    std::string name_;
    std::uint32_t tag_;
    Object* (*makeEmpty_)();
    std::vector<AttributeDescription> attributes_;
    std::vector<RelationshipDescription> toOnes_;
    std::vector<RelationshipDescription> toManys_;
};

/// The one description of T, made by T::describe() on first use.
template <typename T>
const EntityDescription& entityDescription() {
    static const EntityDescription description = T::describe();
    return description;
}

/// Says that an object is made for a row that is being read: its constructor sets nothing.
struct Loading {};

/// Base of an entity: `class Track final : public Entity<Track, TrackFields>`. The fields read as plain
/// members
/// (`track->title`); `track->edit().title = text` changes one. Use what edit() returns at once and do not
/// keep it.
template <typename T, typename Fields>
class Entity : public Object, public Fields {
  public:
    [[nodiscard]] Fields& edit() const {
        willChange();
        return const_cast<Fields&>(
            static_cast<const Fields&>(*this)); // objects are made by make(), never const
    }

  protected:
    Entity();
};

namespace detail {

void bindRelationships(Object& object, const EntityDescription& entity);

template <typename M>
struct Unwrapped {
    using Type = M;
    static constexpr bool isOptional = false;
};

template <typename M>
struct Unwrapped<std::optional<M>> {
    using Type = M;
    static constexpr bool isOptional = true;
};

template <typename V>
constexpr AttributeKind kindOf() {
    if constexpr (std::is_enum_v<V>)
        return AttributeKind::enumeration;
    else if constexpr (std::is_same_v<V, std::string>)
        return AttributeKind::text;
    else if constexpr (std::is_same_v<V, bool>)
        return AttributeKind::boolean;
    else if constexpr (std::is_same_v<V, std::int64_t>)
        return AttributeKind::integer;
    else if constexpr (std::is_same_v<V, double>)
        return AttributeKind::real;
    else if constexpr (std::is_same_v<V, Date>)
        return AttributeKind::date;
    else if constexpr (std::is_same_v<V, Uuid>)
        return AttributeKind::uuid;
    else {
        static_assert(std::is_same_v<V, std::vector<std::string>>, "no attribute kind for this type");
        return AttributeKind::textList;
    }
}

template <typename T, auto Member>
auto& member(Object& object) {
    return static_cast<T&>(object).*Member;
}

template <typename M>
std::optional<std::string_view> rawValueOf(const M& value) {
    if constexpr (Unwrapped<M>::isOptional) {
        if (!value) return std::nullopt;
        return rawValue(*value);
    } else {
        return rawValue(value);
    }
}

template <typename M>
bool assignRawValueTo(M& value, std::string_view raw) {
    for (const auto candidate : allCases(typename Unwrapped<M>::Type{}))
        if (rawValue(candidate) == raw) {
            value = candidate;
            return true;
        }
    return false;
}

template <typename List>
struct MemberOf;

template <typename T>
struct MemberOf<ToMany<T>> {
    using Type = T;
};

template <typename T>
struct MemberOf<ToOne<T>> {
    using Type = T;
};

} // namespace detail

template <typename T, typename Fields>
Entity<T, Fields>::Entity()
    : Object(entityDescription<T>()) {
    detail::bindRelationships(*this, entityDescription<T>());
}

/// Writes an entity's description: one line an attribute or relationship, members named by pointer.
template <typename T>
class EntityBuilder {
  public:
    explicit EntityBuilder(std::string name)
        : description_(std::move(name), []() -> Object* { return new T(Loading{}); }) {}

    template <auto Member>
    EntityBuilder& attribute(std::string name) {
        return add<Member>(std::move(name), false);
    }

    /// A text or UUID attribute that no two objects share.
    template <auto Member>
    EntityBuilder& uniqueAttribute(std::string name) {
        return add<Member>(std::move(name), true);
    }

    /// `Member` is a ToOne of T, `Inverse` the ToMany at its target that lists T.
    template <auto Member, auto Inverse>
    EntityBuilder& toOne(std::string name) {
        using Target =
            typename detail::MemberOf<std::remove_cvref_t<decltype(std::declval<T&>().*Member)>>::Type;
        description_.add(RelationshipDescription{
            std::move(name), false, DeleteRule::nullify, &entityDescription<Target>,
            [](Object& owner) -> ToOneBase& { return detail::member<T, Member>(owner); },
            [](Object& target) -> ToManyBase& { return detail::member<Target, Inverse>(target); }});
        return *this;
    }

    /// `Member` is a ToMany of T, `Inverse` the ToOne at its members that points back.
    template <auto Member, auto Inverse>
    EntityBuilder& toMany(std::string name, DeleteRule deleteRule) {
        using Target =
            typename detail::MemberOf<std::remove_cvref_t<decltype(std::declval<T&>().*Member)>>::Type;
        description_.add(RelationshipDescription{
            std::move(name), true, deleteRule, &entityDescription<Target>,
            [](Object& member) -> ToOneBase& { return detail::member<Target, Inverse>(member); },
            [](Object& owner) -> ToManyBase& { return detail::member<T, Member>(owner); }});
        return *this;
    }

    [[nodiscard]] EntityDescription build() { return std::move(description_); }

  private:
    template <auto Member>
    EntityBuilder& add(std::string name, bool isUnique) {
        using M = std::remove_cvref_t<decltype(std::declval<T&>().*Member)>;
        using V = typename detail::Unwrapped<M>::Type;
        constexpr AttributeKind kind = detail::kindOf<V>();
        AttributeDescription attribute{
            std::move(name),
            kind,
            detail::Unwrapped<M>::isOptional,
            isUnique,
            [](Object& object) -> void* { return &detail::member<T, Member>(object); },
            [](Object& object) { detail::member<T, Member>(object) = {}; }};
        if constexpr (kind == AttributeKind::enumeration) {
            attribute.rawValue = [](const Object& object) {
                return detail::rawValueOf(static_cast<const T&>(object).*Member);
            };
            attribute.assignRawValue = [](Object& object, std::string_view raw) {
                return detail::assignRawValueTo(detail::member<T, Member>(object), raw);
            };
        }
        description_.add(std::move(attribute));
        return *this;
    }

    EntityDescription description_;
};

} // namespace velto::model
