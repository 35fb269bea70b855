#pragma once

#include "platform/core/Error.hpp"

namespace velto {

/// Why a folder cannot become a library.
class LibraryCreationError : public Error {
  public:
    enum class Case {
        notADirectory,
        accessDenied,
        duplicateName,
        emptyName,
        holdsNoneOfItsFiles, ///< of a library that is to be found in another folder
    };

    explicit LibraryCreationError(Case kind)
        : Error(text(kind))
        , kind_(kind) {}

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    static const char* text(Case kind) {
        switch (kind) {
        case Case::notADirectory:
            return "The selected item is not a directory";
        case Case::accessDenied:
            return "Access to the selected directory was denied";
        case Case::duplicateName:
            return "A library with this name already exists";
        case Case::emptyName:
            return "A library needs a name";
        case Case::holdsNoneOfItsFiles:
            return "None of the library's files is in the selected directory";
        }
        return "";
    }

    Case kind_;
};

} // namespace velto
