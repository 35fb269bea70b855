#pragma once

#include "platform/model/Object.hpp"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace velto::model {

struct RelationshipDescription;

/// What ToOne and ToMany share of their type-free work. Both ends of a relationship always agree.
class ToOneBase {
  public:
    ToOneBase() = default;
    ToOneBase(const ToOneBase&) = delete;
    ToOneBase& operator=(const ToOneBase&) = delete;

  protected:
    [[nodiscard]] const Object* target() const { return target_; }

    void assign(const Object* target);

  private:
    friend class ToManyBase;
    friend struct ObjectAccess;

    Object* owner_ = nullptr;
    const RelationshipDescription* description_ = nullptr;
    Object* target_ = nullptr;
    std::size_t slot_ = 0; ///< where the owner is in the target's list
};

class ToManyBase {
  public:
    ToManyBase() = default;
    ToManyBase(const ToManyBase&) = delete;
    ToManyBase& operator=(const ToManyBase&) = delete;

    [[nodiscard]] std::size_t size() const { return items_.size() - holes_; }

    [[nodiscard]] bool empty() const { return size() == 0; }

  protected:
    void append(const Object& member);
    void remove(const Object& member);
    [[nodiscard]] bool contains(const Object& member) const;
    [[nodiscard]] const Object* at(std::size_t index) const;

    /// The first position from `position` on that holds a member; `endPosition` if there is none.
    [[nodiscard]] std::size_t settle(std::size_t position) const;

    [[nodiscard]] const Object* slot(std::size_t position) const { return items_[position]; }

    static constexpr std::size_t endPosition = std::numeric_limits<std::size_t>::max();

    /// While one lives no member of its list changes its position.
    class Hold {
      public:
        Hold() = default;

        explicit Hold(const ToManyBase& list)
            : list_(&list) {
            ++list_->held_;
        }

        Hold(const Hold& other)
            : list_(other.list_) {
            if (list_ != nullptr) ++list_->held_;
        }

        Hold& operator=(Hold other) noexcept {
            std::swap(list_, other.list_);
            return *this;
        }

        ~Hold() {
            if (list_ != nullptr) --list_->held_;
        }

      private:
        const ToManyBase* list_ = nullptr;
    };

  private:
    friend class ToOneBase;
    friend struct ObjectAccess;

    void add(ToOneBase& member);
    void drop(ToOneBase& member);
    void close() const;

    Object* owner_ = nullptr;
    const RelationshipDescription* description_ = nullptr;
    mutable std::vector<Object*> items_; ///< null in the place of a removed member until the list grows again
    mutable std::size_t holes_ = 0;
    mutable std::size_t first_ = 0; ///< nothing but holes before it
    mutable std::size_t held_ = 0;  ///< how many iterations are under way
};

/// The single-valued side: reads like a handle, and assigning moves the owner from the old target's list to
/// the end of the new one's. Relating an object to one that a context owns inserts it there.
template <typename T>
class ToOne : public ToOneBase {
  public:
    ToOne& operator=(const Ref<T>& target) {
        assign(target.get());
        return *this;
    }

    ToOne& operator=(std::nullptr_t) {
        assign(nullptr);
        return *this;
    }

    ToOne& operator=(const ToOne& other) {
        assign(other.target());
        return *this;
    }

    ToOne() = default;
    ToOne(const ToOne&) = delete;

    // NOLINTNEXTLINE(google-explicit-constructor): it is a handle with a home
    operator Ref<T>() const { return Ref<T>(get()); }

    [[nodiscard]] Ref<T> ref() const { return Ref<T>(get()); }

    [[nodiscard]] const T* get() const { return static_cast<const T*>(target()); }

    const T* operator->() const { return get(); }

    const T& operator*() const { return *get(); }

    explicit operator bool() const { return target() != nullptr; }

    friend bool operator==(const ToOne& left, const ToOne& right) { return left.target() == right.target(); }

    friend bool operator==(const ToOne& left, const Ref<T>& right) { return left.get() == right.get(); }

    friend bool operator==(const ToOne& left, std::nullptr_t) { return left.target() == nullptr; }
};

/// The list side, in the order in which members were related (after a restart: in the order in which they
/// were inserted). Iterating gives handles by value. Members may be added and removed while iterating: each
/// member that is there when the iteration comes to it is visited once, added ones too. Removal is constant
/// time. No iterator outlives its list.
template <typename T>
class ToMany : public ToManyBase {
  public:
    class Iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Ref<T>;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = Ref<T>;

        Iterator() = default;

        Ref<T> operator*() const { return Ref<T>(get()); }

        const T* operator->() const { return get(); }

        Iterator& operator++() {
            position_ = list_->settle(position_ + 1);
            return *this;
        }

        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }

        friend bool operator==(const Iterator& left, const Iterator& right) {
            return left.position_ == right.position_;
        }

      private:
        friend class ToMany;

        Iterator(const ToMany& list, std::size_t position)
            : list_(&list)
            , position_(position) {
            if (position != endPosition) hold_ = Hold(list);
        }

        [[nodiscard]] const T* get() const { return static_cast<const T*>(list_->slot(position_)); }

        const ToMany* list_ = nullptr;
        std::size_t position_ = endPosition;
        Hold hold_;
    };

    [[nodiscard]] Iterator begin() const { return Iterator(*this, settle(0)); }

    [[nodiscard]] Iterator end() const { return Iterator(*this, endPosition); }

    [[nodiscard]] Ref<T> operator[](std::size_t index) const {
        return Ref<T>(static_cast<const T*>(at(index)));
    }

    [[nodiscard]] Ref<T> front() const { return (*this)[0]; }

    [[nodiscard]] bool contains(const Ref<T>& member) const { return ToManyBase::contains(*member); }

    /// A copy of the list that later changes leave alone.
    [[nodiscard]] std::vector<Ref<T>> all() const {
        std::vector<Ref<T>> members;
        members.reserve(size());
        for (Iterator i = begin(); i != end(); ++i)
            members.push_back(*i);
        return members;
    }

    /// Puts the member at the end, taking it out of the list that held it; one that is in this list stays
    /// put.
    void append(const Ref<T>& member) { ToManyBase::append(*member); }

    void remove(const Ref<T>& member) { ToManyBase::remove(*member); }
};

} // namespace velto::model
