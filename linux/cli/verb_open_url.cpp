// vorlinden open-url URL: what the desktop starts for vorlinden:// links.
#include <iostream>
#include <memory>
#include <string>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/redirect_inbox.h"

namespace vorlinden::cli {
namespace {

int run(const std::string& url) {
    const Machine machine;
    if (host::RedirectInbox::deliver(machine.system, machine.folders.state, url)) return done;
    std::cerr << "No sign-in is waiting for this address. Start one with `vorlinden login`.\n";
    return failed;
}

}  // namespace

void addOpenURL(Program& program) {
    const auto url = std::make_shared<std::string>();
    auto& verb = program.addVerb("open-url",
                                 "Hand the address that the sign-in page sent the browser to over to a "
                                 "waiting `vorlinden login`",
                                 [url] { return run(*url); });
    verb.add_option("URL", *url, "It begins with vorlinden:")->required();
}

}  // namespace vorlinden::cli
