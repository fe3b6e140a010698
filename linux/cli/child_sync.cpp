#include "linux/cli/child_sync.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux/host/failures.h"

extern char** environ;

namespace vorlinden::cli {
namespace {

struct SpawnSettings {
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};

    SpawnSettings() {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
};

}  // namespace

ChildSync::ChildSync() {
    std::string name = "vorlinden";
    std::string verb = "sync";
    std::string with = "--with=" + std::to_string(::getpid());
    const std::array<char*, 4> arguments{name.data(), verb.data(), with.data(), nullptr};
    const SpawnSettings settings;
    const int error = ::posix_spawn(&process_, "/proc/self/exe", &settings.actions, &settings.attributes,
                                    arguments.data(), environ);
    if (error != 0) throw host::ProgramFailed("vorlinden sync", error);
}

ChildSync::~ChildSync() {
    ::kill(process_, SIGTERM);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace vorlinden::cli
