#include "platform/model/ModelContainer.hpp"

#include "platform/model/ContextState.hpp"
#include "platform/model/StoreFile.hpp"

namespace velto::model {

namespace {

void makeFolder(const std::filesystem::path& store) {
    const auto folder = store.parent_path();
    if (folder.empty()) return;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw StoreError(StoreError::Case::cannotOpen, store, error.message());
}

} // namespace

ModelContainer::ModelContainer() = default;

ModelContainer::~ModelContainer() = default;

std::unique_ptr<ModelContainer> ModelContainer::create(const Schema& schema,
                                                       const ModelConfiguration& configuration) {
    std::unique_ptr<ModelContainer> container(new ModelContainer());
    makeFolder(configuration.storePath);
    container->lock_ = std::make_unique<StoreLock>(configuration.storePath);
    auto database = openStore(schema, configuration.storePath);
    container->context_.reset(
        new ModelContext(std::make_unique<ModelContext::State>(std::move(database), schema)));
    return container;
}

} // namespace velto::model
