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

ModelContainer::ModelContainer(ModelConfiguration configuration)
    : configuration_(std::move(configuration)) {}

ModelContainer::~ModelContainer() = default;

std::unique_ptr<ModelContainer> ModelContainer::create(Schema schema, ModelConfiguration configuration) {
    std::unique_ptr<ModelContainer> container(new ModelContainer(std::move(configuration)));
    if (!container->configuration_.isMemoryOnly) {
        makeFolder(container->configuration_.storePath);
        container->lock_ = std::make_unique<StoreLock>(container->configuration_.storePath);
    }
    auto database = openStore(schema, container->configuration_);
    container->context_.reset(
        new ModelContext(std::make_unique<ModelContext::State>(std::move(database), schema)));
    return container;
}

} // namespace velto::model
