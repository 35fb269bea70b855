#pragma once

#include "flows/BackgroundTasks.hpp"
#include "flows/MainScreenState.hpp"
#include "platform/concurrency/Clock.hpp"
#include "platform/concurrency/Executors.hpp"
#include "platform/model/ModelContext.hpp"

#include <memory>

namespace velto {

class CrashReporter;

/// What every flow uses. All of it outlives the flows, but for `owner`: the state object, once it is
/// made. A task in the background locks it for each step that it takes, so that it neither keeps the state
/// object alive while it waits nor touches a flow that is gone.
///
/// The rules of every flow: main actor only; an operation takes what it works on as a value, never from a
/// field that others may have assigned while it waited; it asks after each wait if an object that it works
/// on is deleted; it returns its outcome, and shows a failure in `state.errorMessage` besides. An operation
/// that would leave something half done if the program ended enters `background` first.
struct FlowContext {
    Executors executors;
    Clock& clock;
    CrashReporter& crashReporter;
    model::ModelContext& modelContext;
    MainScreenState& state;
    BackgroundTasks& background;
    const std::weak_ptr<void>& owner;
};

} // namespace velto
