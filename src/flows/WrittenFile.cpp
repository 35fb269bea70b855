#include "flows/WrittenFile.hpp"

#include "platform/files/FileAttributes.hpp"

#include <filesystem>
#include <optional>
#include <system_error>

namespace velto {

namespace {

struct Look {
    std::optional<files::FileIdentity> identity;
    std::uintmax_t sizeBytes = 0;
};

} // namespace

Task<void> noteWritten(Executors executors, FileItemRef file, std::string genreText) {
    if (file->isDeleted()) co_return;
    const auto looking = [path = file->absPath] {
        std::error_code error;
        Look look{files::identityOf(path), std::filesystem::file_size(path, error)};
        if (error) look.identity = std::nullopt;
        return look;
    };
    const Look look = co_await offload(executors, looking);
    if (file->isDeleted()) co_return;
    FileItemFields& fields = file->edit();
    fields.genreText = std::move(genreText);
    if (!look.identity) co_return;
    fields.inode = static_cast<std::int64_t>(look.identity->inode);
    fields.sizeBytes = static_cast<std::int64_t>(look.sizeBytes);
}

} // namespace velto
