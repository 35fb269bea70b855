#pragma once

#include "platform/core/Error.hpp"

#include <optional>
#include <string>

namespace velto {

class KeychainError : public Error {
  public:
    enum class Case { unableToSave, unableToRetrieve, unableToDelete, tokenNotFound, unexpectedData };

    explicit KeychainError(Case kind);

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    Case kind_;
};

/// Where the sign-in token is kept: one token, UTF-8. Any thread may call. Every operation may block (a
/// locked keyring asks its user for the password): from the main actor call it through `offload`.
class KeyringService {
  public:
    virtual ~KeyringService() = default;

    /// Replaces the token that is there. Throws KeychainError.
    virtual void saveToken(const std::string& token) = 0;
    /// Nothing if no token is kept. Throws KeychainError.
    virtual std::optional<std::string> retrieveToken() = 0;
    /// Deleting what is not there succeeds. Throws KeychainError.
    virtual void deleteToken() = 0;
};

} // namespace velto
