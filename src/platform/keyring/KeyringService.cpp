#include "platform/keyring/KeyringService.hpp"

namespace velto {

namespace {

const char* text(KeychainError::Case kind) {
    switch (kind) {
    case KeychainError::Case::unableToSave:
        return "Unable to save authentication token to Keychain";
    case KeychainError::Case::unableToRetrieve:
        return "Unable to retrieve authentication token from Keychain";
    case KeychainError::Case::unableToDelete:
        return "Unable to delete authentication token from Keychain";
    case KeychainError::Case::tokenNotFound:
        return "Authentication token not found in Keychain";
    case KeychainError::Case::unexpectedData:
        return "Unexpected data format in Keychain";
    }
    return "";
}

} // namespace

KeychainError::KeychainError(Case kind)
    : Error(text(kind))
    , kind_(kind) {}

} // namespace velto
