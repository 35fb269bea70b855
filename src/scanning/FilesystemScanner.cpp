#include "scanning/FilesystemScanner.hpp"

#include "platform/core/Error.hpp"
#include "platform/files/FolderListing.hpp"
#include "platform/files/ServiceError.hpp"
#include "platform/log/Log.hpp"
#include "platform/text/PathParts.hpp"
#include "scanning/Glob.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t filesPerProgress = 500;

/// Not music, and some of them closed to everybody.
constexpr std::array<std::string_view, 3> systemFolders = {"$recycle.bin", "system volume information",
                                                           "lost+found"};

bool isSystemFolder(std::string_view name) {
    return std::find(systemFolders.begin(), systemFolders.end(), text::lowercased(name)) !=
           systemFolders.end();
}

bool isAudioFile(std::string_view extension) {
    return std::find(audioFileExtensions.begin(), audioFileExtensions.end(), extension) !=
           audioFileExtensions.end();
}

/// A library's pattern; absent patterns let everything through.
class Filter {
  public:
    explicit Filter(const std::optional<std::string>& pattern)
        : pattern_(pattern.value_or("")) {
        if (pattern) glob_.emplace(*pattern);
    }

    [[nodiscard]] bool matches(std::string_view relPath, bool withoutPattern) const {
        if (!glob_) return withoutPattern;
        const bool isMatch = glob_->matches(relPath);
        if (glob_->isGivenUp()) throw ServiceError(ServiceError::Case::invalidGlobPattern, pattern_);
        return isMatch;
    }

  private:
    std::string pattern_;
    std::optional<Glob> glob_;
};

/// One walk from its root down, folder by folder. Each file that the filters let through goes to `take`.
class Walk {
  public:
    struct Found {
        const std::string& absPath;
        std::string relPath;
        const std::string& extension; ///< lower case
        const files::FolderListing& listing;
        std::string_view name;
    };

    Walk(const WalkSettings& settings, const WalkWatch& watch, UnreadPlaces& unread)
        : relativeStart_(settings.rootPath.size() + 1)
        , include_(settings.includeGlob)
        , exclude_(settings.excludeGlob)
        , watch_(watch)
        , unread_(unread) {
        std::string top = settings.rootPath;
        while (top.size() > 1 && top.ends_with('/'))
            top.pop_back();
        waiting_.push_back(std::move(top));
    }

    /// `take(Found)` throws SystemError if it cannot ask the file.
    template <typename Take>
    void run(const Take& take) {
        for (bool isRoot = true; !waiting_.empty(); isRoot = false) {
            watch_.token.check();
            const std::string folder = std::move(waiting_.back());
            waiting_.pop_back();
            files::FolderListing listing(folder, isRoot);
            try {
                if (!listing.isOpen())
                    throw SystemError(listing.openError(), "Cannot open the folder", folder);
                visit(folder, listing, take);
            } catch (const SystemError& failure) {
                if (isRoot)
                    throw ServiceError(ServiceError::Case::directoryAccessFailed, folder,
                                       std::strerror(failure.errorNumber()));
                passOver(folder, failure);
            }
        }
    }

  private:
    template <typename Take>
    void visit(const std::string& folder, files::FolderListing& listing, const Take& take) {
        const auto firstSubfolder = static_cast<std::ptrdiff_t>(waiting_.size());
        const std::string prefix = folder == "/" ? folder : folder + '/';
        while (const auto entry = listing.next()) {
            if (entry->name.starts_with('.')) continue;
            if (entry->kind == files::EntryKind::unknown)
                unread_.add(relative(prefix + std::string(entry->name)));
            else if (entry->kind == files::EntryKind::folder && !isSystemFolder(entry->name))
                waiting_.push_back(prefix + std::string(entry->name));
            else if (entry->kind == files::EntryKind::regularFile)
                consider(prefix, entry->name, listing, take);
        }
        std::reverse(waiting_.begin() + firstSubfolder, waiting_.end()); // the first one is taken next
    }

    template <typename Take>
    void consider(const std::string& prefix, std::string_view name, const files::FolderListing& listing,
                  const Take& take) {
        const std::string extension = lowercasedExtension(name);
        if (!isAudioFile(extension)) return;
        std::string path;
        path.reserve(prefix.size() + name.size());
        path.append(prefix).append(name);
        std::string relPath = relative(path);
        if (exclude_.matches(relPath, false) || !include_.matches(relPath, true)) return;
        watch_.token.check();
        if (++seen_ % filesPerProgress == 0 && watch_.progress) watch_.progress(seen_);
        try {
            take(Found{path, std::move(relPath), extension, listing, name});
        } catch (const SystemError& failure) {
            passOver(path, failure);
        }
    }

    /// What is gone since its folder was listed is gone. Whatever else cannot be read is not.
    void passOver(const std::string& path, const SystemError& failure) {
        const int reason = failure.errorNumber();
        if (reason == ENOENT || reason == ENOTDIR || reason == ELOOP) return;
        log::line("⚠️ [SCAN] {}", describe(failure));
        unread_.add(relative(path));
    }

    [[nodiscard]] std::string relative(const std::string& path) const {
        return path.substr(std::min(relativeStart_, path.size()));
    }

    std::size_t relativeStart_; ///< counted from the root as it was given, a slash at its end included
    Filter include_;
    Filter exclude_;
    const WalkWatch& watch_;
    UnreadPlaces& unread_;
    std::vector<std::string> waiting_; ///< folders to visit, the next one last
    std::size_t seen_ = 0;
};

} // namespace

bool UnreadPlaces::contain(std::string_view relPath) const {
    if (places_.empty()) return false;
    for (auto end = relPath.find('/');; end = relPath.find('/', end + 1)) {
        if (places_.contains(std::string(relPath.substr(0, end)))) return true;
        if (end == std::string_view::npos) return false;
    }
}

Task<FolderContents> SimpleFilesystemScanner::scanDirectory(WalkSettings settings, WalkWatch watch) {
    FolderContents contents;
    Walk(settings, watch, contents.unread).run([&contents](Walk::Found found) {
        const auto attributes = found.listing.attributes(found.name);
        if (!attributes) return; // gone since it was listed
        FileSystemInfo info;
        info.absPath = found.absPath;
        info.relPath = std::move(found.relPath);
        info.filename = found.name;
        info.ext = found.extension;
        info.sizeBytes = attributes->sizeBytes;
        info.mtime = attributes->modificationDate;
        info.creationDate = attributes->creationDate;
        info.fileNumber = attributes->inode;
        contents.files.push_back(std::move(info));
    });
    co_return contents;
}

Task<FolderNames> SimpleFilesystemScanner::listNames(WalkSettings settings, WalkWatch watch) {
    FolderNames names;
    Walk(settings, watch, names.unread).run([&names](Walk::Found found) {
        names.relPaths.push_back(std::move(found.relPath));
    });
    co_return names;
}

bool SimpleFilesystemScanner::matchesGlob(const std::string& path, const std::string& glob) const {
    return Glob(glob).matches(path);
}

} // namespace velto
