#include "scanning/FilesystemScanner.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/FileAttributes.hpp"
#include "platform/files/FolderListing.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/PathParts.hpp"
#include "scanning/Glob.hpp"

#include <algorithm>
#include <utility>

namespace velto {

namespace {

/// One walk from its root down, folder by folder.
class Walk {
  public:
    Walk(const std::string& root, const std::optional<std::string>& includeGlob,
         const std::optional<std::string>& excludeGlob)
        : relativeStart_(root.size() + 1) {
        if (includeGlob) include_.emplace(*includeGlob);
        if (excludeGlob) exclude_.emplace(*excludeGlob);
        std::string top = root;
        while (top.size() > 1 && top.ends_with('/'))
            top.pop_back();
        waiting_.push_back(std::move(top));
    }

    std::vector<FileSystemInfo> run() {
        for (bool isRoot = true; !waiting_.empty(); isRoot = false) {
            const std::string folder = std::move(waiting_.back());
            waiting_.pop_back();
            files::FolderListing listing(folder, isRoot);
            if (!listing.isOpen()) {
                if (isRoot) throw ServiceError(ServiceError::Case::directoryAccessFailed, folder);
                log::line("⚠️ [SCAN] {} cannot be opened",
                          folder); // or is gone since its parent was listed
                continue;
            }
            visit(folder, listing);
        }
        return std::move(found_);
    }

  private:
    void visit(const std::string& folder, files::FolderListing& listing) {
        const auto firstSubfolder = static_cast<std::ptrdiff_t>(waiting_.size());
        const std::string prefix = folder == "/" ? folder : folder + '/';
        while (const auto entry = nextOf(listing)) {
            if (entry->name.starts_with('.')) continue;
            if (entry->kind == files::EntryKind::folder)
                waiting_.push_back(prefix + std::string(entry->name));
            else if (entry->kind == files::EntryKind::regularFile)
                consider(prefix, entry->name, listing);
        }
        std::reverse(waiting_.begin() + firstSubfolder, waiting_.end()); // the first one is taken next
    }

    /// A folder that cannot be read on counts as one that cannot be opened: its rest is passed over, rather
    /// than that a whole library goes missing by one of its folders.
    static std::optional<files::Entry> nextOf(files::FolderListing& listing) {
        try {
            return listing.next();
        } catch (const SystemError& failure) {
            log::line("⚠️ [SCAN] {}", describe(failure));
            return std::nullopt;
        }
    }

    /// A file that cannot be asked is passed over, for the same reason.
    static auto attributesOf(const files::FolderListing& listing, std::string_view name)
        -> decltype(listing.attributes(name)) {
        try {
            return listing.attributes(name);
        } catch (const SystemError& failure) {
            log::line("⚠️ [SCAN] {}", describe(failure));
            return std::nullopt;
        }
    }

    void consider(const std::string& prefix, std::string_view name, const files::FolderListing& listing) {
        std::string ext = lowercasedExtension(name);
        if (std::find(audioFileExtensions.begin(), audioFileExtensions.end(), ext) ==
            audioFileExtensions.end())
            return;
        FileSystemInfo info;
        info.absPath.reserve(prefix.size() + name.size());
        info.absPath.append(prefix).append(name);
        info.relPath = info.absPath.substr(std::min(relativeStart_, info.absPath.size()));
        if (exclude_ && exclude_->matches(info.relPath)) return;
        if (include_ && !include_->matches(info.relPath)) return;
        const auto attributes = attributesOf(listing, name);
        if (!attributes)
            return; // gone since it was listed, or in a folder that may be listed and nothing else
        info.filename = name;
        info.ext = std::move(ext);
        info.sizeBytes = attributes->sizeBytes;
        info.mtime = attributes->modificationDate;
        info.creationDate = attributes->creationDate;
        found_.push_back(std::move(info));
    }

    std::size_t relativeStart_; ///< counted from the root as it was given, a slash at its end included
    std::optional<Glob> include_;
    std::optional<Glob> exclude_;
    std::vector<std::string> waiting_; ///< folders to visit, the next one last
    std::vector<FileSystemInfo> found_;
};

} // namespace

Task<FileStream> SimpleFilesystemScanner::scanDirectory(std::string path,
                                                        std::optional<std::string> includeGlob,
                                                        std::optional<std::string> excludeGlob) {
    if (!files::isDirectory(path)) throw ServiceError(ServiceError::Case::directoryAccessFailed, path);
    try {
        co_return FileStream(Walk(path, includeGlob, excludeGlob).run());
    } catch (const Error&) {
        // A walk that fails on its way delivers nothing, and its reader sees an empty folder.
        co_return FileStream();
    }
}

bool SimpleFilesystemScanner::matchesGlob(const std::string& path, const std::string& glob) const {
    return Glob(glob).matches(path);
}

} // namespace velto
