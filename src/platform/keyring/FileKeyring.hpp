#pragma once

#include "platform/keyring/KeyringService.hpp"

#include <filesystem>

namespace velto {

/// A token file that is refused or cannot be used; the text names the file and says what to do.
class TokenFileError : public Error {
  public:
    enum class Case { notRegularFile, notOwned, readableByOthers, tooLarge, unreadable, unwritable };

    TokenFileError(Case kind, const std::filesystem::path& path, const std::string& reason = {});

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    Case kind_;
};

/// The token in a file, for machines without a keyring. The file must be a regular one (no symbolic link),
/// owned by the user and readable by its owner alone (mode 0600 or 0400); anything else is refused, not
/// repaired. Operations throw TokenFileError as well as KeychainError.
class FileKeyring final : public KeyringService {
  public:
    explicit FileKeyring(std::filesystem::path path);

    /// Throws TokenFileError if a file is there and is refused: for the start of the program, since a
    /// client without a readable token only says that there is none.
    void check() const;

    /// Replaces the file as a whole, mode 0600.
    void saveToken(const std::string& token) override;
    /// The file's text without the line break at its end; nothing if it is absent or empty.
    std::optional<std::string> retrieveToken() override;
    void deleteToken() override;

  private:
    std::filesystem::path path_;
};

} // namespace velto
