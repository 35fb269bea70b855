#include "platform/model/StoreError.hpp"

#include <fmt/format.h>

namespace velto::model {

namespace {

std::string describe(StoreError::Case errorCase, const std::string& store, const std::string& detail) {
    using enum StoreError::Case;
    switch (errorCase) {
    case cannotOpen:
        return fmt::format("The library store {} cannot be opened: {}", store, detail);
    case inUse:
        return fmt::format(
            "The library store {} is in use by another running copy of Velto. Quit the other copy "
            "and try again.",
            store);
    case notAStore:
        return fmt::format("The file {} is not a Velto library store ({}). Move it away, with its -wal file "
                           "if there is one, to "
                           "start with a new store.",
                           store, detail);
    case newerVersion:
        return fmt::format(
            "The library store {} was written by a newer version of Velto ({}). Install that version "
            "to use it; the store was left unchanged.",
            store, detail);
    case olderVersion:
        return fmt::format(
            "The library store {} was written by a version of Velto that this one cannot read ({}).", store,
            detail);
    case damaged:
        return fmt::format(
            "The library store {} is damaged: {}. Move it away, with its -wal file if there is one; then put "
            "back a copy or start with a new store.",
            store, detail);
    case diskFull:
        return fmt::format(
            "There is no room left on the disk for the library store {}. Free some space and try "
            "again.",
            store);
    case readOnly:
        return fmt::format("The library store {} cannot be written: {}", store, detail);
    case busy:
        return fmt::format("The library store {} is locked by another program. Try again.", store);
    case duplicateValue:
        return fmt::format("The library store {} already holds an object with this value: {}", store, detail);
    case refusedValue:
        return fmt::format("The library store {} does not take this value: {}", store, detail);
    case inputOutput:
        return fmt::format("Reading or writing the library store {} failed: {}", store, detail);
    case failed:
        break;
    }
    return fmt::format("The library store {} failed: {}", store, detail);
}

} // namespace

StoreError::StoreError(Case errorCase, const std::filesystem::path& store, const std::string& detail)
    : Error(describe(errorCase, store.string(), detail))
    , case_(errorCase) {}

} // namespace velto::model
