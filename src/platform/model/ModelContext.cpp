#include "platform/model/ModelContext.hpp"

#include "platform/concurrency/Executors.hpp"
#include "platform/model/BackgroundSave.hpp"
#include "platform/model/ContextState.hpp"
#include "platform/model/ObjectAccess.hpp"

namespace velto::model {

ModelContext::ModelContext(std::unique_ptr<State> state)
    : state_(std::move(state)) {}

ModelContext::~ModelContext() = default;

void ModelContext::load() {
    assertMainActor();
    state_->load(*this);
}

void ModelContext::forEach(const EntityDescription& entity, const std::function<void(const Object&)>& visit) {
    load();
    state_->tables[indexOf(state_->codecs, entity)].forEach(visit);
}

void ModelContext::forEachAfter(const EntityDescription& entity, PersistentIdentifier last, std::size_t most,
                                const std::function<void(const Object&)>& visit) {
    load();
    state_->tables[indexOf(state_->codecs, entity)].visitAfter(last.row(), most, visit);
}

std::size_t ModelContext::count(const EntityDescription& entity) {
    load();
    return state_->tables[indexOf(state_->codecs, entity)].size();
}

const Object* ModelContext::findUnique(const EntityDescription& entity, std::string_view attribute,
                                       std::string_view value) {
    load();
    return state_->uniques[indexOf(state_->codecs, entity)].find(attribute, value);
}

void ModelContext::insert(const Ref<Object>& object) {
    load();
    state_->insert(const_cast<Object&>(*object), *this);
}

void ModelContext::adopt(Object& object) {
    load();
    state_->insert(object, *this);
}

void ModelContext::remove(const Ref<Object>& object) {
    load();
    if (object->context() != this) return;
    // The caller's handle may be one that goes with the removal.
    const Ref<Object> held = object; // NOLINT(performance-unnecessary-copy-initialization)
    state_->remove(const_cast<Object&>(*held));
}

void ModelContext::noteWrite(const Object& object) {
    assertMainActor();
    state_->noteWrite(object);
}

void ModelContext::noteView(const Object& object) {
    state_->feed.noteUpdated(object);
}

bool ModelContext::hasChanges() const {
    return state_->backgroundSave != nullptr || !state_->pending.empty();
}

SaveOutcome ModelContext::save() {
    assertMainActor();
    const auto running = state_->backgroundSave;
    if (running) running->giveWay();
    SaveOutcome outcome;
    for (bool isWritten = false; !isWritten;) {
        try {
            if (const auto changes = state_->collect(); !changes.empty()) state_->writer.write(changes);
            isWritten = true;
        } catch (const RefusedRow& refused) {
            outcome.add(state_->takeBack(refused, outcome));
        }
    }
    state_->markSaved();
    if (running) running->hear(outcome);
    return outcome;
}

Subscription ModelContext::observe(std::function<void(const ChangeSet&)> observer) {
    assertMainActor();
    return state_->feed.observe(std::move(observer));
}

Subscription ModelContext::observe(const Object& object, std::function<void()> observer) {
    assertMainActor();
    return state_->feed.observe(object, std::move(observer));
}

void ModelContext::deliverChangesThrough(std::function<void(std::function<void()>)> post) {
    state_->feed.deliverThrough(std::move(post));
}

void ModelContext::deliverChanges() {
    assertMainActor();
    state_->feed.deliver();
}

} // namespace velto::model
