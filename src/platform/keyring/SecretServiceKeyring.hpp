#pragma once

#include "platform/core/Date.hpp"
#include "platform/keyring/KeyringService.hpp"

#include <string>

namespace velto {

/// The token as an item of the user's default keyring, over the Secret Service: found by its attributes
/// "service" and "account", readable only while the keyring is unlocked. If there is no session bus, no
/// Secret Service or no answer within `timeLimit`, the operation fails with its KeychainError.
class SecretServiceKeyring final : public KeyringService {
  public:
    /// The limit leaves the user a minute to unlock the keyring when it asks.
    explicit SecretServiceKeyring(std::string serviceName = "com.velto.desktop",
                                  std::string accountName = "jwt_token", Seconds timeLimit = Seconds(60));

    void saveToken(const std::string& token) override;
    std::optional<std::string> retrieveToken() override;
    void deleteToken() override;

  private:
    std::string serviceName_;
    std::string accountName_;
    Seconds timeLimit_;
};

} // namespace velto
