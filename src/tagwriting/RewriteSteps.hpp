#pragma once

#include "platform/files/ServiceError.hpp"
#include "platform/log/CrashReporter.hpp"
#include "tagwriting/GuardedRewrite.hpp"

#include <filesystem>
#include <string>

/// What both routes of a rewrite share beside the guard.
namespace velto {

/// The file itself, with links followed, absolute; also if a rewrite that was cut short left only its backup,
/// which the next rewrite puts back. Throws fileNotFound, SystemError if it cannot be looked at.
[[nodiscard]] std::filesystem::path resolvedFile(const std::filesystem::path& file);

/// The check for the kind of file that the extension says.
[[nodiscard]] FileCheck fileCheckFor(const std::filesystem::path& file);

/// Runs a rewrite of `file`. A failure is recorded and leaves as ServiceError: as it is if it is one,
/// metadataWriteFailed otherwise.
template <typename Rewrite>
void runRewrite(CrashReporter& crashReporter, const std::filesystem::path& file, Rewrite rewrite) {
    try {
        rewrite();
    } catch (const ServiceError& error) {
        crashReporter.recordError(error);
        throw;
    } catch (const std::exception& error) {
        crashReporter.recordError(error);
        throw ServiceError(ServiceError::Case::metadataWriteFailed, file.string(), describe(error));
    }
}

} // namespace velto
