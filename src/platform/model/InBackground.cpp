#include "platform/model/InBackground.hpp"

#include "platform/model/BackgroundSave.hpp"
#include "platform/model/ContextState.hpp"

namespace velto::model {

struct BackgroundLoad {
    static Task<void> run(ModelContext& context, Executors executors) {
        if (context.state_->isLoaded) co_return;
        // The job may outlast its caller: it holds the store and a copy of the descriptions.
        const auto read = [database = context.state_->database, codecs = context.state_->codecs] {
            return std::make_shared<ObjectGraph>(readGraph(*database, codecs));
        };
        const std::shared_ptr<ObjectGraph> graph = co_await offload(executors, read);
        if (context.state_->isLoaded) co_return;
        context.state_->adopt(*graph, context);
    }
};

Task<void> loadInBackground(ModelContext& context, Executors executors) {
    assertMainActor();
    co_await BackgroundLoad::run(context, executors);
}

Task<void> saveInBackground(ModelContext& context, Executors executors) {
    assertMainActor();
    co_await BackgroundSave::run(context, executors);
}

} // namespace velto::model
