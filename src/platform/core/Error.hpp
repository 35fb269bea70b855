#pragma once

#include <stdexcept>
#include <string>

namespace velto {

/// Base of every failure that crosses a service boundary. A service derives one class with an enumeration of
/// its cases; the text that the user reads is fixed when the value is made. Foreign failures (errno, SQLite,
/// curl, TagLib) become one of these at the edge where they are met; nothing else is thrown across a
/// boundary.
class Error : public std::runtime_error {
  public:
    explicit Error(const std::string& description)
        : std::runtime_error(description) {}

    /// The text for the user, UTF-8.
    [[nodiscard]] std::string errorDescription() const { return what(); }

    /// Name of the concrete type for log lines ("SystemError", "ScannerError").
    [[nodiscard]] std::string typeName() const;
};

/// A failed system call. The text is "<operation> <path>: <reason>".
class SystemError : public Error {
  public:
    SystemError(int errorNumber, const std::string& operation, const std::string& path);

    [[nodiscard]] int errorNumber() const { return errorNumber_; }

  private:
    int errorNumber_;
};

/// The platform's cancellation: raised at a checkpoint of a task that was asked to stop.
class CancellationError : public Error {
  public:
    CancellationError()
        : Error("The operation was cancelled") {}
};

/// Text and type name of any exception, for log lines and for wrapping in another error.
[[nodiscard]] std::string describe(const std::exception& error);
[[nodiscard]] std::string typeName(const std::exception& error);

/// The same for the exception being handled or held; "Unknown error" if it is not a std::exception.
[[nodiscard]] std::string describe(const std::exception_ptr& error);

} // namespace velto
