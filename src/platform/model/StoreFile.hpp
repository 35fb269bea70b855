#pragma once

#include "platform/files/Descriptor.hpp"
#include "platform/model/RowCodec.hpp"
#include "platform/model/Schema.hpp"

#include <memory>

namespace velto::model {

/// Keeps other processes out of a store while it lives: a lock on "<store>.lock", which goes with the
/// process.
class StoreLock {
  public:
    /// Throws StoreError (inUse, cannotOpen).
    explicit StoreLock(const std::filesystem::path& store);

  private:
    files::Descriptor descriptor_;
};

/// Opens the store of this schema, making it if the path holds nothing. The caller holds the lock.
std::unique_ptr<Database> openStore(const Schema& schema, const std::filesystem::path& store);

} // namespace velto::model
