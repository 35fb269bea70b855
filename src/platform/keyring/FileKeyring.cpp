#include "platform/keyring/FileKeyring.hpp"

#include "platform/files/AtomicReplace.hpp"
#include "platform/files/Descriptor.hpp"
#include "platform/text/Text.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace velto {

namespace {

using Case = TokenFileError::Case;

/// Far more than any token; a file of this size is another file.
constexpr std::size_t maximumSize = std::size_t{64} << 10;

std::string fullText(Case kind, const std::string& path, const std::string& reason) {
    switch (kind) {
    case Case::notRegularFile:
        return fmt::format("The token file {} is not a regular file. Name a plain file, no link or folder.",
                           path);
    case Case::notOwned:
        return fmt::format("The token file {} belongs to another user. Use a file of your own.", path);
    case Case::readableByOthers:
        return fmt::format("The token file {} is open to others. Run \"chmod 600\" on it and sign in anew.",
                           path);
    case Case::tooLarge:
        return fmt::format("The token file {} is too large to hold a token.", path);
    case Case::unreadable:
        return fmt::format("The token file {} cannot be read: {}", path, reason);
    case Case::unwritable:
        return fmt::format("The token file {} cannot be written: {}", path, reason);
    }
    return "";
}

std::string reasonOf(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

/// Opens and looks at the very file that is then read; false if there is none.
bool readChecked(const std::filesystem::path& path, std::string* content) {
    // Without O_NONBLOCK a pipe in the file's place would hang the program.
    const files::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        if (errno == ENOENT) return false;
        if (errno == ELOOP || errno == ENXIO) throw TokenFileError(Case::notRegularFile, path);
        throw TokenFileError(Case::unreadable, path, reasonOf(errno));
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw TokenFileError(Case::unreadable, path, reasonOf(errno));
    if (!S_ISREG(status.st_mode)) throw TokenFileError(Case::notRegularFile, path);
    if (status.st_uid != ::geteuid()) throw TokenFileError(Case::notOwned, path);
    if ((status.st_mode & 07177) != 0) throw TokenFileError(Case::readableByOthers, path);
    if (content == nullptr) return true;
    std::array<char, 4096> block{};
    while (content->size() <= maximumSize) {
        const ssize_t count = ::read(file.get(), block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw TokenFileError(Case::unreadable, path, reasonOf(errno));
        if (count == 0) return true;
        content->append(block.data(), static_cast<std::size_t>(count));
    }
    throw TokenFileError(Case::tooLarge, path);
}

} // namespace

TokenFileError::TokenFileError(Case kind, const std::filesystem::path& path, const std::string& reason)
    : Error(fullText(kind, path.string(), reason))
    , kind_(kind) {}

FileKeyring::FileKeyring(std::filesystem::path path)
    : path_(std::move(path)) {}

void FileKeyring::check() const {
    readChecked(path_, nullptr);
}

void FileKeyring::saveToken(const std::string& token) {
    if (!text::isValidUtf8(token)) throw KeychainError(KeychainError::Case::unexpectedData);
    check();
    try {
        files::replaceFile(path_, token + "\n");
    } catch (const SystemError& error) {
        throw TokenFileError(Case::unwritable, path_, reasonOf(error.errorNumber()));
    }
}

std::optional<std::string> FileKeyring::retrieveToken() {
    std::string content;
    if (!readChecked(path_, &content)) return std::nullopt;
    while (!content.empty() && (content.back() == '\n' || content.back() == '\r'))
        content.pop_back();
    if (content.empty()) return std::nullopt;
    if (!text::isValidUtf8(content)) throw KeychainError(KeychainError::Case::unexpectedData);
    return content;
}

void FileKeyring::deleteToken() {
    if (!readChecked(path_, nullptr)) return;
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT)
        throw TokenFileError(Case::unwritable, path_, reasonOf(errno));
}

} // namespace velto
