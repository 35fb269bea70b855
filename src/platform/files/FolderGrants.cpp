#include "platform/files/FolderGrants.hpp"

#include "platform/files/FileAttributes.hpp"
#include "platform/log/Log.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <optional>
#include <string_view>

namespace velto {

namespace {

/// A grant: this mark, device and inode (8 bytes each, most significant first), the absolute path. Kept on
/// users' disks: do not change, make a new mark.
constexpr std::array<std::uint8_t, 4> grantMark = {'V', 'F', 'G', '1'};
constexpr std::size_t headerBytes = grantMark.size() + 16;

std::string_view text(FolderGrantError::Case kind) {
    switch (kind) {
    case FolderGrantError::Case::folderNotFound:
        return "Folder not found: ";
    case FolderGrantError::Case::notAFolder:
        return "Not a folder: ";
    case FolderGrantError::Case::folderNotReadable:
        return "Folder not readable: ";
    case FolderGrantError::Case::invalidGrant:
        return "The stored folder access is not valid";
    }
    return "";
}

files::FileIdentity identityOfFolder(const std::filesystem::path& folder) {
    using Case = FolderGrantError::Case;
    const auto identity = files::identityOf(folder);
    if (!identity)
        throw FolderGrantError(errno == EACCES ? Case::folderNotReadable : Case::folderNotFound, folder);
    if (!files::isDirectory(folder)) throw FolderGrantError(Case::notAFolder, folder);
    return *identity;
}

void append(FolderGrants::Grant& grant, std::uint64_t number) {
    for (int shift = 56; shift >= 0; shift -= 8)
        grant.push_back(static_cast<std::uint8_t>(number >> shift));
}

std::uint64_t numberAt(const FolderGrants::Grant& grant, std::size_t at) {
    std::uint64_t number = 0;
    for (std::size_t i = at; i < at + 8; ++i)
        number = number << 8 | grant[i];
    return number;
}

std::string key(const std::filesystem::path& folder) {
    std::string normal = std::filesystem::absolute(folder).lexically_normal().string();
    while (normal.size() > 1 && normal.ends_with('/'))
        normal.pop_back();
    return normal;
}

} // namespace

FolderGrantError::FolderGrantError(Case kind, const std::filesystem::path& path)
    : Error(std::string(text(kind)) + path.string())
    , kind_(kind) {}

FolderGrants::Grant FolderGrants::makeGrant(const std::filesystem::path& folder) {
    const std::string path = key(folder);
    const files::FileIdentity identity = identityOfFolder(path);
    if (!files::isReadable(path)) throw FolderGrantError(FolderGrantError::Case::folderNotReadable, path);
    Grant grant(grantMark.begin(), grantMark.end());
    append(grant, identity.device);
    append(grant, identity.inode);
    grant.insert(grant.end(), path.begin(), path.end());
    return grant;
}

FolderGrants::Resolved FolderGrants::resolve(const Grant& grant) {
    const bool isGrant =
        grant.size() > headerBytes && std::equal(grantMark.begin(), grantMark.end(), grant.begin()) &&
        grant[headerBytes] == '/' && std::find(grant.begin() + headerBytes, grant.end(), 0) == grant.end();
    if (!isGrant) throw FolderGrantError(FolderGrantError::Case::invalidGrant);
    const std::string path(grant.begin() + headerBytes, grant.end());
    const files::FileIdentity granted{numberAt(grant, grantMark.size()),
                                      numberAt(grant, grantMark.size() + 8)};
    const files::FileIdentity found = identityOfFolder(path);
    return {path, found != granted, found.device != granted.device, files::isReadable(path)};
}

bool FolderGrants::startAccessing(const Resolved& folder) {
    if (folder.isReadable) ++active_[key(folder.path)];
    return folder.isReadable;
}

void FolderGrants::stopAccessing(const std::filesystem::path& folder) {
    const auto found = active_.find(key(folder));
    if (found == active_.end()) {
        log::line("⚠️ [ACCESS] Access to a folder was stopped that had not been started: {}",
                  folder.string());
        return;
    }
    if (--found->second == 0) active_.erase(found);
}

int FolderGrants::activeCount(const std::filesystem::path& folder) const {
    const auto found = active_.find(key(folder));
    return found == active_.end() ? 0 : found->second;
}

int FolderGrants::activeCount() const {
    return std::accumulate(active_.begin(), active_.end(), 0,
                           [](int sum, const auto& entry) { return sum + entry.second; });
}

} // namespace velto
