// The desktop as the sign-in uses it: its browser, and its way of opening vorlinden:// links.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "linux/host/redirect_inbox.h"
#include "linux/host/sign_in.h"

namespace vorlinden::host {

// Runs a program of the PATH to its end, its output dropped. Throws ProgramFailed.
void runProgram(const std::vector<std::string>& command);

// The text of the desktop entry (freedesktop.org Desktop Entry) that opens vorlinden:// links with `program`,
// an absolute path.
std::string desktopEntry(const std::filesystem::path& program);

// Installs that entry for this user and makes it the handler of the scheme. Throws FileError, ProgramFailed
// where the desktop's own tools are missing or refuse.
void installLinkHandler(platform::FileSystem& files, const std::filesystem::path& dataHome,
                        const std::filesystem::path& program);

// The page in the desktop's browser, and the redirect through the link handler.
class DesktopPage : public AuthorizationPage {
 public:
    // `tell` gets a line for the person at the terminal.
    DesktopPage(const platform::System& system, const platform::Folders& folders,
                std::function<void(const std::string&)> tell);
    Task<std::string> visit(URL page) override;

 private:
    const platform::System system_;
    const platform::Folders folders_;
    const std::function<void(const std::string&)> tell_;
};

}  // namespace vorlinden::host
