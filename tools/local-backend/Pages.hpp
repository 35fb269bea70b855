#pragma once

#include "State.hpp"

#include <optional>
#include <string>

namespace velto::local {

/// Text made safe for HTML content and for attribute values in double quotes.
[[nodiscard]] std::string escapeHtml(std::string_view text);

/// The address that takes a token to the program.
[[nodiscard]] std::string callbackUrl(const std::string& token);

/// The pages, whole HTML documents. Every text that comes from outside is escaped.
/// `action` is the form's path, "/auth/desktop-login" or "/signup"; `target` where the sign-in leads,
/// `problem` an error to show; either may be empty.
[[nodiscard]] std::string signInPage(std::string_view action, std::string_view email, std::string_view target,
                                     std::string_view problem);
/// With a `returnAddress`, the browser takes the token there at once.
[[nodiscard]] std::string signedInPage(std::string_view email, const std::string& token,
                                       const std::optional<std::string>& returnAddress);
[[nodiscard]] std::string billingPage(const Account& account, std::string_view notice);
[[nodiscard]] std::string settingsPage(const Account& account, std::string_view notice);
/// A page with a heading and one paragraph, e.g. for errors and for a visitor without a session.
[[nodiscard]] std::string plainPage(std::string_view heading, std::string_view text,
                                    std::string_view link = {}, std::string_view linkText = {});

} // namespace velto::local
