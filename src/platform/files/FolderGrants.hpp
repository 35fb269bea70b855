#pragma once

#include "platform/core/Error.hpp"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace velto {

/// A folder that cannot be granted or reached, or bytes that are not a grant.
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

/// The user's permission to use a folder, in bytes that can be kept, and the count of the folder's uses. A
/// grant opens nothing that the file system does not: it says whether the folder at its path is still the
/// one that was granted. The counts are confined to the main actor and never ask the file system.
class FolderGrants {
  public:
    using Grant = std::vector<std::uint8_t>;

    struct Resolved {
        std::filesystem::path path;
        bool isStale = false;       ///< another device or inode is at the path now; make a new grant
        bool isOtherDevice = false; ///< stale by its device: another drive, or the same under a new number
        bool isReadable = false;    ///< when it was resolved
    };

    /// A grant for an existing readable folder, by its absolute path. Throws FolderGrantError. Asks the file
    /// system, which may hang: call it on the pool.
    [[nodiscard]] static Grant makeGrant(const std::filesystem::path& folder);

    /// Where a grant leads now. Throws FolderGrantError if the bytes are not a grant or no folder is at its
    /// path. Asks the file system, which may hang: call it on the pool.
    [[nodiscard]] static Resolved resolve(const Grant& grant);

    /// Begins a use of the folder; false, and nothing to stop, if it was not readable when it was resolved.
    /// Each success needs one stopAccessing of the same path.
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
