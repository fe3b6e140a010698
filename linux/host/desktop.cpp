#include "linux/host/desktop.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "linux/host/failures.h"

extern char** environ;

namespace vorlinden::host {
namespace {

using namespace std::chrono_literals;

// The status by which shells tell that there is no such program.
constexpr int notThere = 127;
// A browser that is started for the page may run in the place of xdg-open until it is closed.
constexpr int looksAtTheBrowser = 30;
constexpr auto betweenLooks = 100ms;

constexpr const char* entryName = "vorlinden-link.desktop";

bool isPlain(const std::string& argument) {
    static constexpr std::string_view others = "/._+-";
    return std::all_of(argument.begin(), argument.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || others.find(static_cast<char>(c)) != std::string_view::npos;
    });
}

// For the Exec key. Quoted only where it must be, since xdg-open without a desktop's help knows no quotes.
// Reserved characters are escaped for the key's own quoting, then backslashes for the file's strings.
std::string execQuoted(const std::string& argument) {
    if (isPlain(argument)) return argument;
    std::string quoted = "\"";
    for (const char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += "\\\\";
        if (c == '\\') quoted += '\\';
        if (c == '%') quoted += '%';
        quoted += c;
    }
    return quoted + "\"";
}

class SpawnSettings {
 public:
    SpawnSettings() {
        ::posix_spawn_file_actions_init(&actions_);
        for (const int descriptor : {0, 1, 2}) {
            ::posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
        }
        // The child gets the signals that this program waits for in its own way, but no Ctrl-C meant for it.
        ::posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Program::Program(std::vector<std::string> command) : name_(command.front()) {
    std::vector<char*> arguments;
    for (auto& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    const SpawnSettings settings;
    const int error = ::posix_spawnp(&process_, arguments[0], settings.actions(), settings.attributes(),
                                     arguments.data(), environ);
    if (error != 0) throw ProgramFailed(name_, notThere);
}

bool Program::settle(int waitOptions) {
    if (process_ == 0) return true;
    int status = 0;
    pid_t ended = 0;
    do {
        ended = ::waitpid(process_, &status, waitOptions);
    } while (ended < 0 && errno == EINTR);
    if (ended == 0) return false;
    process_ = 0;
    if (ended > 0 && exitStatus(status) != 0) throw ProgramFailed(name_, exitStatus(status));
    return true;
}

bool Program::hasEnded() {
    return settle(WNOHANG);
}

void Program::waitForEnd() {
    settle(0);
}

std::string desktopEntry(const std::filesystem::path& program) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Vorlinden sign-in\n"
           "Exec=" +
           execQuoted(program.string()) +
           " open-url %u\n"
           "NoDisplay=true\n"
           "Terminal=false\n"
           "MimeType=x-scheme-handler/vorlinden;\n";
}

void installLinkHandler(platform::FileSystem& files, const std::filesystem::path& dataHome,
                        const std::filesystem::path& program) {
    const auto folder = dataHome / "applications";
    files.createDirectories(folder);
    files.writeAtomically(platform::Data(desktopEntry(program)), folder / entryName);
    Program({"xdg-mime", "default", entryName, "x-scheme-handler/vorlinden"}).waitForEnd();
}

DesktopPage::DesktopPage(const platform::System& system, const platform::Folders& folders,
                         std::function<void(const std::string&)> tell)
    : system_(system), folders_(folders), tell_(std::move(tell)) {}

Task<std::string> DesktopPage::visit(URL page) {
    RedirectInbox inbox(system_, folders_.state);
    const std::vector<std::string> command{"xdg-open", page.absoluteString()};
    try {
        installLinkHandler(*system_.files, folders_.data.parent_path(),
                           std::filesystem::read_symlink("/proc/self/exe"));
        Program browser(command);
        for (int look = 0; look < looksAtTheBrowser && !browser.hasEnded(); ++look)
            co_await system_.timers->sleep(betweenLooks);
        tell_("The sign-in page is open in your browser. Allow access there; this program waits for it.");
    } catch (const ProgramFailed& failure) {
        tell_(std::string(failure.what()) + " Open this page in a browser on this machine yourself:\n" +
              page.absoluteString() +
              "\nIf nothing happens after you allowed access, run `vorlinden open-url ADDRESS` with the "
              "address "
              "that the browser was sent to.");
    }
    co_return co_await inbox.receive();
}

}  // namespace vorlinden::host
