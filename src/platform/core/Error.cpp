#include "platform/core/Error.hpp"

#include <cxxabi.h>
#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <typeinfo>

namespace velto {

namespace {

std::string demangledLastComponent(const char* mangled) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    std::string full = status == 0 && name ? name.get() : mangled;
    if (const auto colon = full.rfind("::"); colon != std::string::npos) full.erase(0, colon + 2);
    return full;
}

std::string reason(int errorNumber) {
    char buffer[256];
    return strerror_r(errorNumber, buffer, sizeof buffer);
}

} // namespace

std::string Error::typeName() const {
    return velto::typeName(*this);
}

SystemError::SystemError(int errorNumber, const std::string& operation, const std::string& path)
    : Error(fmt::format("{} {}: {}", operation, path, reason(errorNumber)))
    , errorNumber_(errorNumber) {}

std::string describe(const std::exception& error) {
    return error.what();
}

std::string typeName(const std::exception& error) {
    return demangledLastComponent(typeid(error).name());
}

std::string describe(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
        return "No error";
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "Unknown error";
    }
}

} // namespace velto
