#pragma once

#include "platform/concurrency/Published.hpp"
#include "platform/model/Entity.hpp"
#include "platform/model/StoreError.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace velto::model {

/// The objects that changed in one turn of the main actor, each in one of the lists, once. An object whose
/// relationship list gained or lost a member counts as updated.
struct ChangeSet {
    std::vector<Ref<Object>> inserted;
    std::vector<Ref<Object>> updated;
    std::vector<Ref<Object>> deleted;

    /// Whether any object of T is among them.
    template <typename T>
    [[nodiscard]] bool concerns() const {
        return concerns(entityDescription<T>());
    }

    [[nodiscard]] bool concerns(const EntityDescription& entity) const;
};

/// What a save took back, because the store does not take it (a second object with a unique value, say).
/// Everything else that was pending is in the store.
struct SaveOutcome {
    struct Refusal {
        Ref<Object> object;
        StoreError reason; ///< duplicateValue or refusedValue
    };

    std::vector<Refusal> refusals;

    void add(const SaveOutcome& other);
    [[nodiscard]] bool refuses(const Ref<Object>& object) const;

    /// For the owner of `object`: throws the reason if it is among the refusals.
    void throwIfRefused(const Ref<Object>& object) const;
};

/// The objects of a store: one object per row, read whole on first need, changed in memory and written by
/// save(). Confined to the main actor: an operation that is called elsewhere ends the program. Failures are
/// StoreErrors.
class ModelContext {
  public:
    ~ModelContext();
    ModelContext(const ModelContext&) = delete;
    ModelContext& operator=(const ModelContext&) = delete;

    /// All objects of T, pending ones included, in the order of their insertion. Linear in their number.
    template <typename T>
    [[nodiscard]] std::vector<Ref<T>> fetch() {
        return fetch<T>([](const T&) { return true; });
    }

    /// Those for which `predicate(const T&)` holds.
    template <typename T, typename Predicate>
    [[nodiscard]] std::vector<Ref<T>> fetch(Predicate predicate) {
        std::vector<Ref<T>> found;
        forEach(entityDescription<T>(), [&](const Object& object) {
            const T& candidate = static_cast<const T&>(object);
            if (predicate(candidate)) found.push_back(Ref<T>(candidate));
        });
        return found;
    }

    /// The first objects of T, at most `most`, that were inserted after the one with this identity, whether
    /// or not that one is still there; with the default identity the very first.
    template <typename T>
    [[nodiscard]] std::vector<Ref<T>> fetchAfter(PersistentIdentifier last, std::size_t most) {
        std::vector<Ref<T>> found;
        forEachAfter(entityDescription<T>(), last, most,
                     [&](const Object& object) { found.push_back(Ref<T>(static_cast<const T&>(object))); });
        return found;
    }

    template <typename T>
    [[nodiscard]] std::size_t count() {
        return count(entityDescription<T>());
    }

    /// The object whose unique attribute has this value, pending ones included; null if there is none.
    /// Constant time, but for the first call of an entity, which makes its index.
    template <typename T>
    [[nodiscard]] Ref<T> findUnique(std::string_view attribute, std::string_view value) {
        return Ref<T>(static_cast<const T*>(findUnique(entityDescription<T>(), attribute, value)));
    }

    template <typename T>
    [[nodiscard]] Ref<T> findUnique(std::string_view attribute, const Uuid& value) {
        return findUnique<T>(attribute, std::string_view(reinterpret_cast<const char*>(value.bytes.data()),
                                                         value.bytes.size()));
    }

    /// Registers the object and all that it is related to. Once inserted it stays where it is.
    void insert(const Ref<Object>& object);

    /// Deletes the object by the delete rules, in memory at once and in the store with the next save. As that
    /// save may fail, removeInBackground() deletes the other way round.
    void remove(const Ref<Object>& object);

    /// True while a save would write something.
    [[nodiscard]] bool hasChanges() const;

    /// Writes all pending changes in one transaction. Throws if it cannot: then nothing is written, the
    /// objects keep their changes, and a later save writes them. But an object that the store does not take
    /// fails nobody's save: it is taken back, everything else is written, and the outcome names it. If it is
    /// new it is deleted, together with what is new in it; otherwise its attributes get the values that the
    /// store holds. Observers hear of either.
    SaveOutcome save();

    /// Reads the whole store now rather than at the first fetch.
    void load();

    /// Calls `observer` on the main actor with what changed, coalesced, at the end of a turn.
    [[nodiscard]] Subscription observe(std::function<void(const ChangeSet&)> observer);

    /// Gives it a way to run something later on the main actor (posting to its executor). Without one only
    /// deliverChanges() delivers changes.
    void deliverChangesThrough(std::function<void(std::function<void()>)> post);

    /// Delivers what has changed so far, now.
    void deliverChanges();

  private:
    friend class ModelContainer;
    friend class Object;
    friend class ToOneBase;
    friend class BackgroundSave;
    friend class Removal;
    friend struct BackgroundWork;
    class State;

    explicit ModelContext(std::unique_ptr<State> state);

    void forEach(const EntityDescription& entity, const std::function<void(const Object&)>& visit);
    void forEachAfter(const EntityDescription& entity, PersistentIdentifier last, std::size_t most,
                      const std::function<void(const Object&)>& visit);
    [[nodiscard]] std::size_t count(const EntityDescription& entity);
    [[nodiscard]] const Object* findUnique(const EntityDescription& entity, std::string_view attribute,
                                           std::string_view value);
    void adopt(Object& object);
    void noteWrite(const Object& object);
    void noteView(const Object& object);
    [[nodiscard]] Subscription observe(const Object& object, std::function<void()> observer);

    std::unique_ptr<State> state_;
};

} // namespace velto::model
