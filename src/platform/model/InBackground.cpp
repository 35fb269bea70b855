#include "platform/model/InBackground.hpp"

#include "platform/model/BackgroundSave.hpp"
#include "platform/model/ContextState.hpp"

namespace velto::model {

namespace {
constexpr std::size_t objectsPerTurn = 2'000; // about a millisecond of the main actor
} // namespace

struct BackgroundWork {
    static Task<void> load(ModelContext& context, Executors executors) {
        if (context.state_->isLoaded) co_return;
        // The job may outlast its caller: it holds the store and a copy of the descriptions.
        const auto read = [database = context.state_->database, codecs = context.state_->codecs] {
            return std::make_shared<ObjectGraph>(readGraph(*database, codecs));
        };
        const std::shared_ptr<ObjectGraph> graph = co_await offload(executors.store, read);
        if (context.state_->isLoaded) co_return;
        context.state_->adopt(*graph, context);
    }

    static Task<void> index(ModelContext& context, const EntityDescription& entity, std::size_t room) {
        context.load();
        UniqueIndex& index = context.state_->uniques[indexOf(context.state_->codecs, entity)];
        index.reserve(context.count(entity) + room);
        while (index.build(objectsPerTurn))
            co_await yieldNow();
    }
};

Task<void> loadInBackground(ModelContext& context, Executors executors) {
    assertMainActor();
    co_await BackgroundWork::load(context, executors);
}

Task<void> indexInBackground(ModelContext& context, const EntityDescription& entity, std::size_t room) {
    assertMainActor();
    co_await BackgroundWork::index(context, entity, room);
}

Task<SaveOutcome> saveInBackground(ModelContext& context, Executors executors) {
    assertMainActor();
    co_return co_await BackgroundSave::run(context, executors, {});
}

Task<void> removeInBackground(ModelContext& context, Executors executors, std::vector<Ref<Object>> objects) {
    assertMainActor();
    context.load();
    co_await BackgroundSave::run(context, executors, std::move(objects));
}

} // namespace velto::model
