#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/model/ModelContext.hpp"

// The two operations of a context that take long, done without holding the main actor up. Call on the main
// actor; the context must outlive the call, and the executors the context.

namespace velto::model {

/// What ModelContext::load() does, reading on the pool. Changes nothing where the context is loaded already,
/// or is by the time that the rows are read. Fails as load() does.
Task<void> loadInBackground(ModelContext& context, Executors executors);

/// What ModelContext::save() does: the values are captured in short turns of the main actor and written on
/// the pool. Changes made before the last turn are in, later ones stay pending. A second call waits for the
/// first, and a plain save() or a rollback() may come between. Fails as save() does, and then all that it
/// took is pending again.
Task<void> saveInBackground(ModelContext& context, Executors executors);

} // namespace velto::model
