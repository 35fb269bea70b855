#pragma once

#include "platform/model/ModelContext.hpp"
#include "platform/model/Schema.hpp"

#include <memory>

namespace velto::model {

class StoreLock;

/// One open store: its file, the lock that keeps other processes out, and the one context over it. Made and
/// destroyed on the main actor. Objects may outlive it: they stay readable, with empty relationships.
class ModelContainer {
  public:
    /// Opens the store, making it where the path holds nothing. Throws StoreError; a file that is refused
    /// (something else, damaged, from a newer version, in use) is left exactly as it was.
    static std::unique_ptr<ModelContainer> create(Schema schema, ModelConfiguration configuration);

    ~ModelContainer();
    ModelContainer(const ModelContainer&) = delete;
    ModelContainer& operator=(const ModelContainer&) = delete;

    [[nodiscard]] ModelContext& mainContext() { return *context_; }

    [[nodiscard]] const ModelConfiguration& configuration() const { return configuration_; }

  private:
    explicit ModelContainer(ModelConfiguration configuration);

    ModelConfiguration configuration_;
    std::unique_ptr<StoreLock> lock_; ///< released after the context has gone
    std::unique_ptr<ModelContext> context_;
};

} // namespace velto::model
