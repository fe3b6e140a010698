// vorlinden login [--no-browser] [--device-name NAME] [--register-again]
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "linux/cli/machine.h"
#include "linux/cli/terminal_page.h"
#include "linux/cli/verbs.h"
#include "linux/host/desktop.h"
#include "linux/host/sign_in.h"
#include "synckit/container/sync_signal.h"

namespace vorlinden::cli {
namespace {

struct Options {
    bool noBrowser = false;
    std::optional<std::string> deviceName;
    bool registerAgain = false;
};

std::unique_ptr<host::AuthorizationPage> makePage(const Machine& machine, bool noBrowser) {
    if (noBrowser) return std::make_unique<TerminalPage>(machine.system.timers);
    return std::make_unique<host::DesktopPage>(
        machine.system, machine.folders, [](const std::string& line) { std::cerr << line << std::endl; });
}

int run(const Options& options) {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    const auto page = makePage(machine, options.noBrowser);
    const host::SignInOptions signIn{options.deviceName.value_or(machine.system.deviceName),
                                     options.registerAgain};
    host::SignedIn result;
    machine.runInterruptibly(
        [&]() -> platform::Task<> { result = co_await host::signIn(workspace, *page, signIn); });
    // A sync that waited for somebody to sign in goes on at once.
    machine.system.notifications->post(SyncSignal::syncNowName);
    std::cerr << "Signed in as device " << result.deviceName << ", with " << result.brains
              << (result.brains == 1 ? " brain" : " brains")
              << ". `vorlinden sync` fetches what is in them.\n";
    return done;
}

}  // namespace

void addLogin(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb("login", "Sign in to the server", [options] { return run(*options); });
    verb.add_flag(
        "--no-browser", options->noBrowser,
        "Print the address of the sign-in page, and read the address to which it sends the browser from "
        "standard input");
    verb.add_option("--device-name", options->deviceName, "This machine's name on the server");
    verb.add_flag("--register-again", options->registerAgain,
                  "Register this program anew, where the server no longer knows it");
}

}  // namespace vorlinden::cli
