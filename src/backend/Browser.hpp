#pragma once

#include <string>

namespace velto {

/// What sign-in needs of the desktop. Called on the main actor; must return at once.
class Browser {
  public:
    virtual ~Browser() = default;
    /// Opens a web page in the user's default browser.
    virtual void openURL(const std::string& url) = 0;
    /// Brings the application's window to the front, if there is one.
    virtual void activateApplication() = 0;
};

} // namespace velto
