#include "platform/model/BackgroundSave.hpp"

#include "platform/model/ContextState.hpp"
#include "platform/model/ObjectAccess.hpp"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace velto::model {

namespace {

using ObjectState = ObjectAccess::State;

constexpr std::size_t rowsPerTurn = 500;      // about a millisecond of the main actor
constexpr std::size_t objectsPerTurn = 2'000; // likewise
constexpr std::size_t rowsPerPiece = 4'000;   // some 4 MB of captured values
constexpr int turnsBeforeLast = 10'000;       // a save ends even if more is changed than is captured

} // namespace

/// Hundreds of thousands of rows and handles take a while to free: not on the main actor.
struct BackgroundSave::Spent {
    std::deque<Row> piece;
    std::deque<Captured> captured;
    std::unordered_map<const Object*, std::size_t> places;
    std::vector<Queue> changed;
    std::vector<Queue> added;
    std::vector<std::vector<Ref<Object>>> deleted;
    std::unique_ptr<Removal> removal;
};

/// Puts the capture back if the coroutine is destroyed before the last piece is launched.
struct BackgroundSave::Abort {
    std::shared_ptr<BackgroundSave> save;

    explicit Abort(std::shared_ptr<BackgroundSave> started)
        : save(std::move(started)) {}

    Abort(const Abort&) = delete;
    Abort& operator=(const Abort&) = delete;

    ~Abort() {
        if (save->isLaunched_ || save->context_ == nullptr) return;
        save->giveWay();
        save->end();
    }
};

void BackgroundSave::Queue::take(std::vector<Ref<Object>>& others) {
    if (objects.empty())
        objects.swap(others);
    else
        objects.insert(objects.end(), std::make_move_iterator(others.begin()),
                       std::make_move_iterator(others.end()));
    others.clear();
}

Ref<Object> BackgroundSave::Queue::pop() {
    Ref<Object> first = std::move(objects[next++]);
    if (isEmpty()) {
        objects.clear();
        next = 0;
    }
    return first;
}

BackgroundSave::BackgroundSave(ModelContext& context, Executor main)
    : context_(&context)
    , writer_(context.state_->writer)
    , ended_(std::move(main))
    , writeOrder_(context.state_->writeOrder)
    , changed_(writeOrder_.size())
    , new_(writeOrder_.size())
    , deleted_(writeOrder_.size())
    , deletedWritten_(writeOrder_.size()) {}

Task<SaveOutcome> BackgroundSave::run(ModelContext& context, Executors executors,
                                      std::vector<Ref<Object>> objects) {
    const bool isRemoval = !objects.empty();
    SaveOutcome outcome;
    for (;;) {
        while (context.state_->backgroundSave) {
            const auto running = context.state_->backgroundSave;
            co_await running->ended_.wait();
            if (running->isAbandoned_) co_return outcome;
            outcome.add(running->outcome_);
        }
        const auto save = std::make_shared<BackgroundSave>(context, executors.main);
        context.state_->backgroundSave = save;
        if (isRemoval) save->removal_ = std::make_unique<Removal>(context, std::move(objects));
        co_await attempt(save, executors);
        const auto refused = save->refusedRow();
        if (refused && isRemoval) objects = save->removal_->giveBack();
        freeOn(executors.store, save->spent());
        if (!refused && save->failure_) std::rethrow_exception(save->failure_);
        // A plain save that came between has met the row as well, and has written what was pending.
        if (refused && !save->isTakenOver_) save->outcome_.add(context.state_->takeBack(*refused, outcome));
        outcome.add(save->outcome_);
        if (!refused || (save->isTakenOver_ && !isRemoval)) co_return outcome;
    }
}

Task<void> BackgroundSave::attempt(std::shared_ptr<BackgroundSave> save, Executors executors) {
    const Abort abort(save);
    for (int turn = 0; !save->isLaunched_; ++turn) {
        const bool isLastPiece = save->capture(turn >= turnsBeforeLast);
        if (isLastPiece || save->isPieceFull()) {
            save->launch(isLastPiece);
            // The promise is the job's alone: a job that is dropped unrun breaks it, and nobody waits for
            // ever.
            const auto job = [save, outcome = std::exchange(save->promise_, nullptr)] {
                save->write(*outcome);
            };
            co_await offload(executors.store, job);
        } else {
            co_await yieldNow();
        }
        if (save->isLaunched_) break;
        if (save->context_ == nullptr) co_return;
        if (!save->hasWritten()) break;
    }
    while (save->isRemoving(objectsPerTurn))
        co_await yieldNow();
    save->settle();
}

std::optional<RefusedRow> BackgroundSave::refusedRow() const {
    if (!failure_) return std::nullopt;
    try {
        std::rethrow_exception(failure_);
    } catch (const RefusedRow& refused) {
        return refused;
    } catch (...) {
        return std::nullopt;
    }
}

bool BackgroundSave::capture(bool isLastTurn) {
    std::size_t room = isLastTurn ? std::numeric_limits<std::size_t>::max() : rowsPerTurn;
    auto& pending = context_->state_->pending.changed;
    for (std::size_t place = 0; place < pending.size(); ++place)
        changed_[place].take(pending[place]);
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
    for (const std::size_t place : writeOrder_)
        for (; !changed_[place].isEmpty(); --room) {
            if (room == 0) return false;
            Ref<Object> object = changed_[place].pop();
            if (ObjectAccess::state(*object) == ObjectState::inserted)
                new_[place].objects.push_back(std::move(object));
            else
                captureRow(object, place);
        }
    for (const std::size_t place : writeOrder_)
        for (; !new_[place].isEmpty(); --room) {
            if (room == 0) return false;
            captureRow(new_[place].pop(), place);
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
    const auto [known, isFirst] = places_.try_emplace(object.get(), piece_.size());
    if (isFirst) piece_.push_back({object, {kind, place, ObjectAccess::row(changing), nullptr, {}}, false});
    RowChange& change = piece_[known->second].change;
    change.kind = std::max(change.kind, kind); // the later capture holds what the earlier one was for
    CaptureSink sink(context_->state_->codecs[place].columnCount());
    context_->state_->codecs[place].encode(changing, change.kind != RowChange::Kind::update, sink);
    change.values = sink.take();
    if (removal_ && change.kind != RowChange::Kind::update) removal_->cutLinks(changing, change.values);
    captured_.push_back({object, static_cast<std::uint32_t>(place), kind});
    // From here on it has a row: if it is deleted meanwhile, the row has to go as well.
    ObjectAccess::setState(changing, ObjectState::saved);
    ObjectAccess::unmark(changing, ObjectAccess::dirty | ObjectAccess::relinked);
}

bool BackgroundSave::isPieceFull() const {
    return !removal_ && piece_.size() >= rowsPerPiece;
}

void BackgroundSave::launch(bool isLastPiece) {
    auto& pending = context_->state_->pending.deleted;
    for (std::size_t place = 0; place < pending.size(); ++place) {
        std::move(pending[place].begin(), pending[place].end(), std::back_inserter(deleted_[place]));
        pending[place].clear();
    }
    for (Row& row : piece_)
        row.isDropped = row.object->isDeleted() || (removal_ && removal_->takes(*row.object));
    promise_ = std::make_shared<std::promise<void>>();
    written_ = promise_->get_future();
    isLaunched_ = isLastPiece;
}

std::vector<RowChange> BackgroundSave::sortedChanges() {
    // Sorts small keys and moves each row once: rows are large.
    struct Key {
        std::size_t group;
        std::int64_t row;
        Row* captured;
    };

    std::vector<std::size_t> rank(writeOrder_.size());
    for (std::size_t i = 0; i < rank.size(); ++i)
        rank[writeOrder_[i]] = i;
    std::vector<Key> keys;
    keys.reserve(piece_.size());
    for (Row& row : piece_) {
        if (row.isDropped) continue;
        const bool isInsert = row.change.kind == RowChange::Kind::insert;
        keys.push_back({rank[row.change.entity] + (isInsert ? rank.size() : 0), row.change.row, &row});
    }
    std::sort(keys.begin(), keys.end(), [](const Key& left, const Key& right) {
        return left.group != right.group ? left.group < right.group : left.row < right.row;
    });
    std::vector<RowChange> sorted;
    const auto remove = [&](std::size_t place, std::int64_t row) {
        sorted.push_back({RowChange::Kind::remove, place, row, nullptr, {}});
    };
    for (auto place = writeOrder_.rbegin(); place != writeOrder_.rend(); ++place) {
        for (auto& written = deletedWritten_[*place]; written < deleted_[*place].size(); ++written)
            remove(*place, ObjectAccess::row(*deleted_[*place][written]));
        if (!removal_) continue;
        for (const std::int64_t row : removal_->rows()[*place])
            remove(*place, row);
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
        const auto changes = sortedChanges();
        if (!isBegun_ && !changes.empty()) writer_.begin();
        isBegun_ = isBegun_ || !changes.empty();
        if (!changes.empty()) writer_.append(changes);
        if (isBegun_ && isLaunched_) writer_.commit();
        outcome.set_value();
    } catch (...) {
        outcome.set_exception(std::current_exception());
    }
}

bool BackgroundSave::hasWritten() {
    if (!written_.valid()) return !failure_;
    try {
        written_.get();
    } catch (...) {
        failure_ = std::current_exception();
    }
    piece_.clear();
    places_.clear();
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
    isTakenOver_ = isLaunched_;
    if (isLaunched_) return settle();
    static_cast<void>(hasWritten());
    failure_ = nullptr; // whoever writes all of it now meets it again
    writer_.rollBack();
    putBack();
}

void BackgroundSave::hear(const SaveOutcome& outcome) {
    outcome_.add(outcome);
}

void BackgroundSave::abandon() {
    if (written_.valid()) written_.wait();
    isAbandoned_ = true;
    context_ = nullptr;
    ended_.set();
}

/// What was captured, or waited for it, is pending again, on top of what was changed since.
void BackgroundSave::putBack() {
    auto& pending = context_->state_->pending;
    for (const Captured& captured : captured_) {
        if (captured.object->isDeleted()) continue;
        auto& object = const_cast<Object&>(*captured.object);
        if (captured.kind == RowChange::Kind::insert) ObjectAccess::setState(object, ObjectState::inserted);
        if (captured.kind != RowChange::Kind::update) ObjectAccess::mark(object, ObjectAccess::relinked);
        if (ObjectAccess::isMarked(object, ObjectAccess::dirty)) continue;
        ObjectAccess::mark(object, ObjectAccess::dirty);
        pending.changed[captured.entity].push_back(captured.object);
    }
    for (std::size_t place = 0; place < deleted_.size(); ++place) {
        for (Queue* queue : {&changed_[place], &new_[place]})
            while (!queue->isEmpty())
                pending.changed[place].push_back(queue->pop());
        for (auto& object : deleted_[place])
            pending.deleted[place].push_back(std::move(object));
        deleted_[place].clear();
        deletedWritten_[place] = 0;
    }
    captured_.clear();
    piece_.clear();
    places_.clear();
    survivorsCaptured_ = 0;
    isBegun_ = false;
}

void BackgroundSave::end() {
    ModelContext* const context = std::exchange(context_, nullptr);
    ended_.set();
    for (auto& table : context->state_->tables)
        table.tidy();
    context->state_->backgroundSave.reset(); // may be the last that holds this
}

std::shared_ptr<BackgroundSave::Spent> BackgroundSave::spent() {
    return std::make_shared<Spent>(Spent{std::move(piece_), std::move(captured_), std::move(places_),
                                         std::move(changed_), std::move(new_), std::move(deleted_),
                                         std::move(removal_)});
}

} // namespace velto::model
