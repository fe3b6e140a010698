// vorlinden config base-url [URL | --unset]
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "linux/cli/machine.h"
#include "linux/cli/verbs.h"
#include "linux/host/base_url.h"

namespace vorlinden::cli {
namespace {

struct Options {
    std::optional<std::string> url;
    bool unset = false;
};

void show(const platform::System& system) {
    const auto setting = host::baseURLSetting(system);
    std::cout << setting.inUse << "\n";
    if (setting.isDefault && setting.override) {
        std::cerr << "The setting \"" << *setting.override
                  << "\" is no usable address; the default is used.\n";
    }
}

int run(const Options& options) {
    if (options.url) {
        if (const auto objection = host::objectionToBaseURL(*options.url)) {
            throw UsageError("\"" + *options.url + "\" can't be the server's address: " + *objection + ".");
        }
    }
    const Machine machine;
    if (options.url || options.unset) {
        host::setBaseURL(machine.system, options.url);
        if (options.url && host::isReadableOnTheWay(*options.url)) {
            std::cerr
                << "Note that what goes to this address is not encrypted: others on the way can read it.\n";
        }
    } else {
        show(machine.system);
    }
    return done;
}

}  // namespace

void addConfig(Program& program) {
    auto& config = program.addGroup("config", "Show or change the settings");
    const auto options = std::make_shared<Options>();
    auto& verb = program.addVerb(
        "base-url",
        "The server's address: shows it, or sets it to URL. Programs that run take it on when started",
        [options] { return run(*options); }, &config);
    auto* url =
        verb.add_option("URL", options->url, "An http or https address, such as https://sync.example.com");
    verb.add_flag("--unset", options->unset, "Go back to the default")->excludes(url);
}

}  // namespace vorlinden::cli
