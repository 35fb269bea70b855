#pragma once

#include "platform/core/Error.hpp"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace velto {

/// A folder that cannot be granted or reached, or a grant that is no grant.
class FolderGrantError : public Error {
  public:
    enum class Case {
        folderNotFound,
        notAFolder,
        folderNotReadable,
        invalidGrant,
    };

    explicit FolderGrantError(Case kind, const std::filesystem::path& path = {});

    [[nodiscard]] Case kind() const { return kind_; }

  private:
    Case kind_;
};

/// The user's leave to use a folder, as a durable token , and the bracket of a folder's use.
/// Plain folder access stands behind it: a grant opens nothing, but it tells when the folder at its path is
/// no longer the one that was granted. Confined to the main actor.
class FolderGrants {
  public:
    using Grant = std::vector<std::uint8_t>;

    struct Resolved {
        std::filesystem::path path;
        bool isStale = false;    ///< another device or inode is at the path now; make a new grant
        bool isReadable = false; ///< when it was resolved
    };

    /// A token for an existing readable folder. Throws FolderGrantError.
    [[nodiscard]] static Grant makeGrant(const std::filesystem::path& folder);

    /// Throws FolderGrantError: the bytes are no grant, or no folder is at its path. Asks the file system:
    /// call it off the main actor, which it does not need.
    [[nodiscard]] static Resolved resolve(const Grant& grant);

    /// Begins a use of the folder; false (and nothing to stop) where it is missing, no folder or unreadable.
    /// Each success needs one stopAccessing of the same path.
    [[nodiscard]] bool startAccessing(const std::filesystem::path& folder);
    /// The same by what resolve() has seen, without a further question to the file system.
    [[nodiscard]] bool startAccessing(const Resolved& folder);
    /// Ends one use; of a folder that is not in use, a bug that is logged and otherwise ignored.
    void stopAccessing(const std::filesystem::path& folder);

    /// Uses begun and not ended yet, of one folder and of all.
    [[nodiscard]] int activeCount(const std::filesystem::path& folder) const;
    [[nodiscard]] int activeCount() const;

  private:
    std::map<std::string, int> active_;
};

} // namespace velto
