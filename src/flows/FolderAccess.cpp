#include "flows/FolderAccess.hpp"

#include "platform/files/ValueFile.hpp"
#include "platform/log/Log.hpp"

namespace velto {

namespace {

/// The key is stored data: it keeps its name.
std::string grantKey(const std::string& libraryName) {
    return "LibraryBookmark_" + libraryName;
}

} // namespace

FolderAccess::FolderAccess(FolderGrants& grants, ValueFile& settings, Executors executors)
    : grants_(grants)
    , settings_(settings)
    , executors_(std::move(executors)) {}

FolderAccess::~FolderAccess() {
    for (const auto& [name, folder] : held_) {
        grants_.stopAccessing(folder);
        log::line("🔓 Stopped accessing security-scoped resource for library '{}'", name);
    }
}

Task<std::optional<std::string>> FolderAccess::restore(LibraryRef library) {
    if (library->isDeleted()) co_return std::nullopt;
    const std::string name = library->name;
    const std::string rootPath = library->rootPath;
    log::line("🔐 [ACCESS] Attempting to restore access for library '{}'", name);
    const auto grant = settings_.data(grantKey(name));
    if (!grant) {
        log::line("⚠️ [ACCESS] No security bookmark found for library '{}'", name);
        log::line("⚠️ [ACCESS] Library path: {}", rootPath);
        log::line("⚠️ [ACCESS] You may need to re-add this library to grant access permissions");
        co_return "No access permission found for '" + name + "'. Please re-add the library.";
    }
    FolderGrants::Resolved resolved;
    std::optional<std::string> failure;
    try {
        const auto resolving = [bytes = *grant] { return FolderGrants::resolve(bytes); };
        resolved = co_await offload(executors_, resolving);
    } catch (const std::exception& error) {
        failure = describe(error);
    }
    if (library->isDeleted()) co_return std::nullopt;
    if (failure) {
        log::line("❌ [ACCESS] Failed to restore access to library '{}': {}", name, *failure);
        log::line("❌ [ACCESS] Library path: {}", rootPath);
        co_return "Cannot access library directory. Please re-add the library '" + name + "'.";
    }
    if (resolved.isStale)
        log::line("⚠️ [ACCESS] Security bookmark for library '{}' is stale - attempting access anyway",
                  name);
    if (!grants_.startAccessing(resolved)) {
        log::line("❌ [ACCESS] Failed to start accessing security-scoped resource for library '{}'", name);
        log::line("❌ [ACCESS] URL: {}", resolved.path.string());
        co_return "Cannot access '" + name + "' directory. Please re-add the library.";
    }
    stop(name);
    held_[name] = resolved.path;
    log::line("✅ [ACCESS] Restored access to library '{}'", name);
    co_return std::nullopt;
}

Task<bool> FolderAccess::isOtherDevice(std::string libraryName) {
    const auto grant = settings_.data(grantKey(libraryName));
    if (!grant) co_return false;
    const auto resolving = [bytes = *grant] {
        try {
            return FolderGrants::resolve(bytes).isOtherDevice;
        } catch (const FolderGrantError&) {
            return false; // whoever opens the folder says why it cannot
        }
    };
    co_return co_await offload(executors_, resolving);
}

void FolderAccess::stop(const std::string& libraryName) {
    const auto held = held_.find(libraryName);
    if (held == held_.end()) return;
    grants_.stopAccessing(held->second);
    held_.erase(held);
}

bool FolderAccess::hasGrant(const std::string& libraryName) const {
    return settings_.data(grantKey(libraryName)).has_value();
}

Task<void> FolderAccess::keep(std::string libraryName, FolderGrants::Grant grant) {
    co_await settings_.setData(grantKey(libraryName), std::move(grant));
}

Task<void> FolderAccess::forget(std::string libraryName) {
    co_await settings_.remove(grantKey(libraryName));
}

} // namespace velto
