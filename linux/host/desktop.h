// The desktop as the sign-in uses it: its browser, and its way of opening vorlinden:// links.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "linux/host/redirect_inbox.h"
#include "linux/host/sign_in.h"

namespace vorlinden::host {

// A program of the PATH that runs beside this one, in a process group of its own, its input and output
// dropped.
class Program {
 public:
    // Throws ProgramFailed if there is no such program.
    explicit Program(std::vector<std::string> command);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Whether it has ended by now: ProgramFailed if it has not ended well.
    bool hasEnded();
    // Blocks until it has ended. Throws ProgramFailed.
    void waitForEnd();

 private:
    bool settle(int waitOptions);

    const std::string name_;
    pid_t process_ = 0;  // 0 once its end was seen
};

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
