#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/model/ModelContext.hpp"

// What takes long with a large context, done without holding up the main actor. Call on the main actor; the
// context must outlive the call, and the executors the context.

namespace velto::model {

/// What ModelContext::load() does, reading on `executors.store`. Changes nothing if the context is loaded
/// already, or is by the time that the rows are read. Fails as load() does.
Task<void> loadInBackground(ModelContext& context, Executors executors);

/// What ModelContext::save() does: the values are captured in short turns of the main actor and written on
/// `executors.store`. Changes made before the last turn are in, later ones stay pending. A second call waits
/// for the first, and a plain save() may come between. Fails as save() does, and then all that it took is
/// pending again. The outcome covers the saves that it waited for too, so that whoever saves in the turn of
/// the change hears of a refusal, whichever save has met it.
Task<SaveOutcome> saveInBackground(ModelContext& context, Executors executors);

/// Deletes the objects by the delete rules, in the store first: one transaction, with all that is pending as
/// saveInBackground() writes it. Until that is written they live on, and if it fails they stay; what becomes
/// related to them meanwhile is treated by the delete rules too. Then they leave the context, in short turns.
Task<void> removeInBackground(ModelContext& context, Executors executors, std::vector<Ref<Object>> objects);

/// Makes the index of findUnique() for one entity, in short turns: otherwise its first call does, at once. It
/// will take `room` more objects without growing.
Task<void> indexInBackground(ModelContext& context, const EntityDescription& entity, std::size_t room);

/// `visit(const Ref<T>&)` for each object of T in the order of insertion, in short turns. Objects that are
/// inserted between the turns are visited too, removed ones are not.
template <typename T, typename F>
Task<void> forEachInTurns(ModelContext& context, F visit) {
    constexpr std::size_t objectsPerTurn = 2'000;
    std::vector<Ref<T>> turn = context.fetchAfter<T>({}, objectsPerTurn);
    while (!turn.empty()) {
        for (const Ref<T>& object : turn)
            visit(object);
        const PersistentIdentifier last = turn.back()->persistentId();
        if (turn.size() < objectsPerTurn) co_return;
        turn.clear();
        co_await yieldNow();
        turn = context.fetchAfter<T>(last, objectsPerTurn);
    }
}

} // namespace velto::model
