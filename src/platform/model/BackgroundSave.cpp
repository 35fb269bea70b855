#include "platform/model/BackgroundSave.hpp"

#include "platform/model/ContextState.hpp"
#include "platform/model/ObjectAccess.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace velto::model {

namespace {

using ObjectState = ObjectAccess::State;

constexpr std::size_t rowsPerTurn = 500;      // about a millisecond of the main actor
constexpr std::size_t objectsPerTurn = 2'000; // likewise
constexpr int turnsBeforeLast =
    10'000; // whoever changes more than is captured does not hold a save up for ever

} // namespace

/// Hundreds of thousands of rows and handles take a while to free: not on the main actor.
struct BackgroundSave::Spent {
    std::deque<Captured> captured;
    std::unordered_map<const Object*, std::size_t> places;
    std::vector<std::vector<Ref<Object>>> deleted;
    std::unique_ptr<Removal> removal;
};

/// Puts the capture back when the coroutine goes before it could launch.
struct BackgroundSave::Abort {
    std::shared_ptr<BackgroundSave> save;

    explicit Abort(std::shared_ptr<BackgroundSave> started)
        : save(std::move(started)) {}

    Abort(const Abort&) = delete;
    Abort& operator=(const Abort&) = delete;

    ~Abort() {
        if (save->isLaunched_ || save->context_ == nullptr) return;
        save->putBack();
        save->end();
    }
};

BackgroundSave::BackgroundSave(ModelContext& context, Executor main)
    : context_(&context)
    , writer_(context.state_->writer)
    , ended_(std::move(main))
    , deleted_(context.state_->codecs.size())
    , promise_(std::make_shared<std::promise<void>>())
    , written_(promise_->get_future()) {}

Task<void> BackgroundSave::run(ModelContext& context, Executors executors, std::vector<Ref<Object>> objects) {
    while (context.state_->backgroundSave) {
        const auto running = context.state_->backgroundSave;
        co_await running->ended_.wait();
    }
    const auto save = std::make_shared<BackgroundSave>(context, executors.main);
    context.state_->backgroundSave = save;
    if (!objects.empty()) save->removal_ = std::make_unique<Removal>(context, std::move(objects));
    const Abort abort(save);
    save->places_.reserve(context.state_->pending.size());
    for (int turn = 0; !save->capture(turn >= turnsBeforeLast); ++turn) {
        co_await yieldNow();
        if (save->context_ == nullptr) co_return;
    }
    save->launch();
    // The promise is the job's alone: a job that is dropped unrun breaks it, and nobody waits for ever.
    const auto job = [save, outcome = std::exchange(save->promise_, nullptr)] { save->write(*outcome); };
    co_await offload(executors, job);
    while (save->isRemoving(objectsPerTurn))
        co_await yieldNow();
    save->settle();
    freeOnPool(executors, save->spent());
    if (save->failure_) std::rethrow_exception(save->failure_);
}

bool BackgroundSave::capture(bool isLastTurn) {
    std::size_t room = isLastTurn ? std::numeric_limits<std::size_t>::max() : rowsPerTurn;
    if (!removal_) return capturePending(room);
    // Each of these steps may have found something for the others.
    std::size_t before = 0;
    do {
        before = room;
        if (!removal_->find(room) || !capturePending(room) || !captureSurvivors(room)) return false;
    } while (room != before);
    return true;
}

bool BackgroundSave::capturePending(std::size_t& room) {
    auto& changed = context_->state_->pending.changed;
    for (std::size_t place = 0; place < changed.size(); ++place)
        for (; !changed[place].empty(); --room) {
            if (room == 0) return false;
            const Ref<Object> object = std::move(changed[place].back());
            changed[place].pop_back();
            captureRow(object, place);
        }
    return true;
}

bool BackgroundSave::captureSurvivors(std::size_t& room) {
    for (; survivorsCaptured_ < removal_->survivors().size(); ++survivorsCaptured_, --room) {
        if (room == 0) return false;
        const Ref<Object>& survivor = removal_->survivors()[survivorsCaptured_];
        ObjectAccess::mark(*survivor, ObjectAccess::relinked);
        captureRow(survivor, context_->state_->index(*survivor));
    }
    return true;
}

void BackgroundSave::captureRow(const Ref<Object>& object, std::size_t place) {
    if (object->isDeleted()) return;
    auto& changing = const_cast<Object&>(*object);
    if (removal_) removal_->follow(changing);
    auto kind = ObjectAccess::isMarked(changing, ObjectAccess::relinked) ? RowChange::Kind::relink
                                                                         : RowChange::Kind::update;
    if (ObjectAccess::state(changing) == ObjectState::inserted) kind = RowChange::Kind::insert;
    const auto [known, isNew] = places_.try_emplace(object.get(), captured_.size());
    if (isNew) captured_.push_back({object, {kind, place, ObjectAccess::row(changing), nullptr, {}}, false});
    RowChange& change = captured_[known->second].change;
    change.kind = std::max(change.kind, kind); // the later capture holds what the earlier one was for
    CaptureSink sink(context_->state_->codecs[place].columnCount());
    context_->state_->codecs[place].encode(changing, change.kind != RowChange::Kind::update, sink);
    change.values = sink.take();
    if (removal_ && change.kind != RowChange::Kind::update) removal_->cutLinks(changing, change.values);
    ObjectAccess::unmark(changing, ObjectAccess::dirty | ObjectAccess::relinked);
}

void BackgroundSave::launch() {
    auto& state = *context_->state_;
    isLaunched_ = true;
    deleted_.swap(state.pending.deleted);
    for (Captured& captured : captured_) {
        captured.isDropped = captured.object->isDeleted() || (removal_ && removal_->takes(*captured.object));
        if (!captured.isDropped && captured.change.kind == RowChange::Kind::insert)
            ObjectAccess::setState(const_cast<Object&>(*captured.object), ObjectState::saved);
    }
    writeOrder_ = state.writeOrder;
}

std::vector<RowChange> BackgroundSave::sortedChanges() {
    // Sorts small keys and moves each row once: rows are large.
    struct Key {
        std::size_t group;
        std::int64_t row;
        Captured* captured;
    };

    std::vector<std::size_t> rank(writeOrder_.size());
    for (std::size_t i = 0; i < rank.size(); ++i)
        rank[writeOrder_[i]] = i;
    std::vector<Key> keys;
    keys.reserve(captured_.size());
    for (Captured& captured : captured_) {
        if (captured.isDropped) continue;
        const bool isInsert = captured.change.kind == RowChange::Kind::insert;
        keys.push_back(
            {rank[captured.change.entity] + (isInsert ? rank.size() : 0), captured.change.row, &captured});
    }
    std::sort(keys.begin(), keys.end(), [](const Key& left, const Key& right) {
        return left.group != right.group ? left.group < right.group : left.row < right.row;
    });
    std::vector<RowChange> sorted;
    for (auto place = writeOrder_.rbegin(); place != writeOrder_.rend(); ++place) {
        for (const auto& object : deleted_[*place])
            sorted.push_back({RowChange::Kind::remove, *place, ObjectAccess::row(*object), nullptr, {}});
        if (!removal_) continue;
        for (const std::int64_t row : removal_->rows()[*place])
            sorted.push_back({RowChange::Kind::remove, *place, row, nullptr, {}});
    }
    sorted.reserve(sorted.size() + keys.size());
    for (const Key& key : keys) {
        RowChange& change = key.captured->change;
        sorted.push_back({change.kind, change.entity, change.row, nullptr, std::move(change.values)});
    }
    return sorted;
}

void BackgroundSave::write(std::promise<void>& outcome) {
    try {
        if (const auto changes = sortedChanges(); !changes.empty()) writer_.write(changes);
        outcome.set_value();
    } catch (...) {
        outcome.set_exception(std::current_exception());
    }
}

bool BackgroundSave::hasWritten() {
    try {
        if (written_.valid()) written_.get();
    } catch (...) {
        failure_ = std::current_exception();
    }
    return !failure_;
}

bool BackgroundSave::isRemoving(std::size_t most) {
    return context_ != nullptr && removal_ && hasWritten() && removal_->apply(most);
}

void BackgroundSave::settle() {
    if (context_ == nullptr) return;
    while (isRemoving(std::numeric_limits<std::size_t>::max())) {
    }
    if (!hasWritten()) putBack();
    end();
}

void BackgroundSave::giveWay() {
    isLaunched_ ? settle() : putBack();
}

void BackgroundSave::abandon() {
    if (isLaunched_ && written_.valid()) written_.wait();
    context_ = nullptr;
    ended_.set();
}

/// What was captured is pending again, on top of what was changed since.
void BackgroundSave::putBack() {
    auto& pending = context_->state_->pending;
    for (const Captured& captured : captured_) {
        if (captured.object->isDeleted()) continue;
        auto& object = const_cast<Object&>(*captured.object);
        if (captured.change.kind == RowChange::Kind::insert)
            ObjectAccess::setState(object, ObjectState::inserted);
        if (captured.change.kind != RowChange::Kind::update)
            ObjectAccess::mark(object, ObjectAccess::relinked);
        if (ObjectAccess::isMarked(object, ObjectAccess::dirty)) continue;
        ObjectAccess::mark(object, ObjectAccess::dirty);
        pending.changed[captured.change.entity].push_back(captured.object);
    }
    captured_.clear();
    places_.clear();
    survivorsCaptured_ = 0;
    for (std::size_t place = 0; place < deleted_.size(); ++place) {
        for (auto& object : deleted_[place])
            pending.deleted[place].push_back(std::move(object));
        deleted_[place].clear();
    }
}

void BackgroundSave::end() {
    ModelContext* const context = std::exchange(context_, nullptr);
    ended_.set();
    for (auto& table : context->state_->tables)
        table.tidy();
    context->state_->backgroundSave.reset(); // may be the last that holds this
}

std::shared_ptr<BackgroundSave::Spent> BackgroundSave::spent() {
    return std::make_shared<Spent>(
        Spent{std::move(captured_), std::move(places_), std::move(deleted_), std::move(removal_)});
}

} // namespace velto::model
