#pragma once

#include "platform/concurrency/Published.hpp"
#include "platform/model/PersistentIdentifier.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace velto::model {

class EntityDescription;
class ModelContext;

template <typename T>
class Ref;

/// Base of every persistent object. Confined to the main actor, except that any thread may copy and drop
/// handles. The context owns its objects; relationships do not own. An object that was deleted stays
/// readable for as long as somebody holds it: its fields keep their last values and its relationships are
/// empty.
class Object {
  public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    [[nodiscard]] PersistentIdentifier persistentId() const;

    /// True from the moment of its removal on, saved or not.
    [[nodiscard]] bool isDeleted() const { return state_ == State::deleted; }

    /// True while the store does not hold its present values.
    [[nodiscard]] bool hasChanges() const { return state_ == State::inserted || (marks_ & dirtyMark) != 0; }

    /// The context that it lives in; null before its insertion, after its removal and after the context's
    /// end.
    [[nodiscard]] ModelContext* context() const { return context_; }

    [[nodiscard]] const EntityDescription& entity() const { return *entity_; }

    /// Calls `observer` on the main actor after changes of this object, once for all changes of one turn. The
    /// delivery of its deletion is the last.
    [[nodiscard]] Subscription observe(std::function<void()> observer) const;

  protected:
    explicit Object(const EntityDescription& entity)
        : entity_(&entity) {}

    /// Comes before every change of a field.
    void willChange() const {
        if (context_ != nullptr && (marks_ & allMarks) != allMarks) noteChange();
    }

  private:
    friend class ToOneBase;
    friend class ToManyBase;
    friend struct ObjectAccess;
    template <typename T>
    friend class Ref;

    enum class State : std::uint8_t { detached, inserted, saved, deleted };
    static constexpr std::uint8_t dirtyMark = 1;    ///< has values that the store lacks
    static constexpr std::uint8_t notedMark = 2;    ///< is in the change set to be delivered next
    static constexpr std::uint8_t touchedMark = 4;  ///< its unique values may differ from the indexed ones
    static constexpr std::uint8_t allMarks = 7;     ///< nothing is left to note
    static constexpr std::uint8_t relinkedMark = 8; ///< a relationship is among what the store lacks

    void noteChange() const;

    void retain() const { references_.fetch_add(1, std::memory_order_relaxed); }

    void release() const;

    const EntityDescription* entity_;
    ModelContext* context_ = nullptr;
    mutable std::int64_t row_ = 0;
    mutable std::atomic<std::uint32_t> references_{1}; // the first belongs to who made it: see make()
    State state_ = State::detached;
    mutable std::uint8_t marks_ = 0;
};

/// A handle on a persistent object, or null. Reads through `->`; `->edit()` is the door
/// for changes. Two handles are equal when they mean the same object.
template <typename T>
class Ref {
  public:
    Ref() = default;

    // NOLINTNEXTLINE(google-explicit-constructor): null reads as "none"
    Ref(std::nullptr_t) {}

    /// A further handle on an object that handles or a context already own.
    explicit Ref(const T& object)
        : Ref(&object) {}

    explicit Ref(const T* object)
        : object_(object) {
        if (object_ != nullptr) object_->retain();
    }

    Ref(const Ref& other)
        : Ref(other.object_) {}

    Ref(Ref&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)) {}

    template <typename U>

    requires(std::is_convertible_v<const U*, const T*> && !std::is_same_v<U, T>)
        // NOLINTNEXTLINE(google-explicit-constructor): as a pointer converts to its base
        Ref(const Ref<U>& other)
        : Ref(static_cast<const T*>(other.get())) {}

    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    ~Ref() {
        if (object_ != nullptr) object_->release();
    }

    const T* operator->() const { return object_; }

    const T& operator*() const { return *object_; }

    [[nodiscard]] const T* get() const { return object_; }

    explicit operator bool() const { return object_ != nullptr; }

    friend bool operator==(const Ref& left, const Ref& right) { return left.object_ == right.object_; }

    friend bool operator==(const Ref& left, std::nullptr_t) { return left.object_ == nullptr; }

  private:
    template <typename U, typename... Args>
    friend Ref<U> make(Args&&... args);

    const T* object_ = nullptr;
};

/// Makes an object that no context owns yet. The only way to make one.
template <typename T, typename... Args>
Ref<T> make(Args&&... args) {
    Ref<T> made;
    made.object_ = new T(std::forward<Args>(args)...); // adopts the first reference
    return made;
}

} // namespace velto::model

template <typename T>
struct std::hash<velto::model::Ref<T>> {
    std::size_t operator()(const velto::model::Ref<T>& handle) const noexcept {
        return std::hash<const void*>()(handle.get());
    }
};
