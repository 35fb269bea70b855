#pragma once

#include "platform/core/Error.hpp"

#include <filesystem>
#include <string>

namespace velto::model {

/// Every failure of the persistent store. The text names the store's file and says what the user can do, if
/// anything.
class StoreError : public Error {
  public:
    enum class Case {
        cannotOpen,     ///< missing rights, a folder in its place, no such folder
        inUse,          ///< another process has the store open
        notAStore,      ///< the file is something else
        newerVersion,   ///< written by a newer version of the program
        olderVersion,   ///< written by a version that this one cannot read
        damaged,        ///< the file is a store, and its content breaks the rules
        diskFull,       ///< no room for the change
        readOnly,       ///< the file or its folder may not be written
        busy,           ///< somebody else held the file locked for longer than the wait
        duplicateValue, ///< a second object with the same value of a unique attribute
        refusedValue,   ///< a value that its column does not take
        inputOutput,    ///< the device failed
        failed,         ///< anything else
    };

    StoreError(Case errorCase, const std::filesystem::path& store, const std::string& detail);

    [[nodiscard]] Case errorCase() const { return case_; }

  private:
    Case case_;
};

} // namespace velto::model
