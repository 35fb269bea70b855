#include "platform/model/UniqueIndex.hpp"

#include "platform/model/ObjectAccess.hpp"

#include <cassert>

namespace velto::model {

namespace {

/// The value's bytes; none if it is absent.
std::optional<std::string_view> bytesOf(const AttributeDescription& attribute, Object& object) {
    const void* address = attribute.address(object);
    if (attribute.kind == AttributeKind::uuid) {
        const auto& bytes = static_cast<const Uuid*>(address)->bytes;
        return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    if (!attribute.isOptional) return *static_cast<const std::string*>(address);
    const auto& text = *static_cast<const std::optional<std::string>*>(address);
    return text ? std::optional<std::string_view>(*text) : std::nullopt;
}

} // namespace

UniqueIndex::UniqueIndex(const EntityDescription& entity, const ObjectTable& table)
    : table_(table) {
    for (const auto& attribute : entity.attributes())
        if (attribute.isUnique) attributes_.push_back({&attribute, {}});
}

Object* UniqueIndex::find(std::string_view attribute, std::string_view value) {
    static_cast<void>(build(table_.size()));
    isBuilt_ = true;
    settle();
    for (const Attribute& candidate : attributes_) {
        if (candidate.description->name != attribute) continue;
        const auto [first, last] = candidate.objects.equal_range(std::hash<std::string_view>()(value));
        for (auto entry = first; entry != last; ++entry)
            if (bytesOf(*candidate.description, *entry->second) == value) return entry->second;
        return nullptr;
    }
    assert(!"no unique attribute of this name");
    return nullptr;
}

bool UniqueIndex::build(std::size_t most) {
    if (isBuilt_) return false;
    if (lastIndexed_ == 0) reserve(table_.size());
    const std::size_t indexed = table_.visitAfter(lastIndexed_, most, [&](Object& object) {
        ObjectAccess::unmark(object, ObjectAccess::touched);
        put(object, hashes(object));
        lastIndexed_ = ObjectAccess::row(object);
    });
    isBuilt_ = indexed == 0;
    return !isBuilt_;
}

void UniqueIndex::reserve(std::size_t count) {
    for (Attribute& attribute : attributes_)
        if (count > attribute.objects.bucket_count()) attribute.objects.reserve(count);
}

bool UniqueIndex::isIndexed(const Object& object) const {
    return isBuilt_ || ObjectAccess::row(object) <= lastIndexed_;
}

void UniqueIndex::insert(Object& object) {
    if (isIndexed(object)) put(object, hashes(object));
}

void UniqueIndex::remove(Object& object) {
    if (!isIndexed(object)) return;
    settle();
    take(object, hashes(object));
}

void UniqueIndex::touch(const Object& object) {
    if (ObjectAccess::isMarked(object, ObjectAccess::touched)) return;
    ObjectAccess::mark(object, ObjectAccess::touched);
    auto& changing = const_cast<Object&>(object);
    if (isIndexed(object) && !attributes_.empty()) touched_.push_back({&changing, hashes(changing)});
}

void UniqueIndex::settle() {
    for (const Touched& touched : touched_) {
        ObjectAccess::unmark(*touched.object, ObjectAccess::touched);
        const auto present = hashes(*touched.object);
        if (present == touched.hashes) continue;
        take(*touched.object, touched.hashes);
        put(*touched.object, present);
    }
    touched_.clear();
}

std::vector<UniqueIndex::Hash> UniqueIndex::hashes(Object& object) const {
    std::vector<Hash> values;
    for (const Attribute& attribute : attributes_)
        values.push_back(std::hash<std::string_view>()(bytesOf(*attribute.description, object).value_or("")));
    return values;
}

void UniqueIndex::put(Object& object, const std::vector<Hash>& hashes) {
    for (std::size_t i = 0; i < attributes_.size(); ++i)
        attributes_[i].objects.emplace(hashes[i], &object);
}

void UniqueIndex::take(Object& object, const std::vector<Hash>& hashes) {
    for (std::size_t i = 0; i < attributes_.size(); ++i) {
        auto& objects = attributes_[i].objects;
        const auto [first, last] = objects.equal_range(hashes[i]);
        for (auto entry = first; entry != last; ++entry)
            if (entry->second == &object) {
                objects.erase(entry);
                break;
            }
    }
}

} // namespace velto::model
