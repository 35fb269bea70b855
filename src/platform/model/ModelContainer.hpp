#pragma once

#include "platform/model/ModelContext.hpp"
#include "platform/model/Schema.hpp"

#include <memory>

namespace velto::model {

class StoreLock;

/// One open store: its file, the lock that keeps other processes out, and the one context over it. Used and
/// destroyed on the main actor. Objects may outlive it: they stay readable, with empty relationships.
class ModelContainer {
  public:
    /// Opens the store, making it if the path holds nothing. Blocks (an older store is copied first), and so
    /// may be called on any thread. Throws StoreError; a file that is refused (something else, damaged, from
    /// a newer version, in use) is left exactly as it was.
    static std::unique_ptr<ModelContainer> create(const Schema& schema,
                                                  const ModelConfiguration& configuration);

    ~ModelContainer();
    ModelContainer(const ModelContainer&) = delete;
    ModelContainer& operator=(const ModelContainer&) = delete;

    [[nodiscard]] ModelContext& mainContext() { return *context_; }

  private:
    ModelContainer();

    std::unique_ptr<StoreLock> lock_; ///< released after the context has gone
    std::unique_ptr<ModelContext> context_;
};

} // namespace velto::model
