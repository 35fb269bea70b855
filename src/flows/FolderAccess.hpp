#pragma once

#include "platform/concurrency/Executors.hpp"
#include "platform/files/FolderGrants.hpp"
#include "store/Library.hpp"

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace velto {

class ValueFile;

/// The folders of libraries: the stored grant of each, by the library's name, and the uses that have begun.
/// At most one use a library; all of them end with this object. Main actor.
class FolderAccess {
  public:
    /// Both outlive this.
    FolderAccess(FolderGrants& grants, ValueFile& settings, Executors executors);
    ~FolderAccess();
    FolderAccess(const FolderAccess&) = delete;
    FolderAccess& operator=(const FolderAccess&) = delete;

    /// Begins the use of the library's folder by its stored grant, and ends the use that was begun before.
    /// The user's text if that cannot be done; none if the library was deleted meanwhile.
    Task<std::optional<std::string>> restore(LibraryRef library);

    /// Whether another device than the granted one stands at the library's path; false if that cannot be
    /// told.
    Task<bool> isOtherDevice(std::string libraryName);

    /// Ends the library's use, if there is one.
    void stop(const std::string& libraryName);

    [[nodiscard]] bool hasGrant(const std::string& libraryName) const;
    /// Stores the grant for later starts of the program. Throws Error if it cannot be written.
    Task<void> keep(std::string libraryName, FolderGrants::Grant grant);
    /// Forgets the stored grant. Throws Error if that cannot be written.
    Task<void> forget(std::string libraryName);

  private:
    FolderGrants& grants_;
    ValueFile& settings_;
    Executors executors_;
    std::map<std::string, std::filesystem::path> held_; ///< by library name
};

} // namespace velto
