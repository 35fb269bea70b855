#pragma once

#include "platform/keyring/KeyringService.hpp"

#include <memory>
#include <mutex>
#include <string>

namespace velto {

/// One backend's token in a place that holds a single text, such as a token file: the text is a JSON list of
/// [{"backend": NAME, "token": TOKEN}], the newest first. A text that is not such a list is a token without a
/// backend's name, as older versions of the program stored it; it reads as the entry of the name "". Throws
/// what the place throws, and KeychainError (unexpectedData) for a list that is damaged: nothing overwrites
/// it.
class TokenInList final : public KeyringService {
  public:
    TokenInList(std::shared_ptr<KeyringService> place, std::string backend);

    void saveToken(const std::string& token) override;
    std::optional<std::string> retrieveToken() override;
    void deleteToken() override;

  private:
    std::shared_ptr<KeyringService> place_;
    std::string backend_;
    std::mutex mutex_; ///< an entry is changed by reading and writing the whole list
};

/// The token of the program's default backend: its own, else the one that an older version of the program
/// stored without saying which backend gave it. At its first use here that one becomes the default backend's
/// own. It is sent to no other: which backend gave it cannot be known.
class InheritedToken final : public KeyringService {
  public:
    InheritedToken(std::shared_ptr<KeyringService> own, std::shared_ptr<KeyringService> nameless);

    void saveToken(const std::string& token) override;
    std::optional<std::string> retrieveToken() override;
    void deleteToken() override;

  private:
    std::shared_ptr<KeyringService> own_;
    std::shared_ptr<KeyringService> nameless_;
    std::mutex mutex_; ///< a token that is being taken over is not deleted meanwhile
};

} // namespace velto
