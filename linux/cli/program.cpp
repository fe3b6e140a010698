#include "linux/cli/program.h"

#include <iostream>
#include <utility>

#include "linux/host/explain.h"
#include "synckit/container/sync_kit.h"

namespace vorlinden::cli {
namespace {

int report(const std::exception_ptr& failure) {
    const auto explanation = host::explain(failure);
    std::cout.flush();
    std::cerr << explanation.sentence << "\n";
    return explanation.needsPerson ? needsPerson : failed;
}

// A full disk or a closed pipe behind standard output must not pass for success.
int statusWithOutputWritten(int status) {
    if (std::cout.flush()) return status;
    std::cerr << "The result could not be written to standard output.\n";
    return failed;
}

}  // namespace

Program::Program() : app_("Your team's knowledge store as an ordinary folder.", "vorlinden") {
    app_.set_version_flag("--version", SyncKit::version);
    app_.require_subcommand(1);
    app_.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string(error.what()) +
               "\nSee `vorlinden --help`, or `vorlinden VERB --help` for one verb.\n";
    });
}

CLI::App& Program::addVerb(const std::string& name, const std::string& description, std::function<int()> run,
                           CLI::App* group) {
    auto* verb = (group ? group : &app_)->add_subcommand(name, description);
    verb->callback([this, verb, run = std::move(run)] {
        if (verb->get_subcommands().empty()) chosen_ = run;  // else the verb below it was meant
    });
    return *verb;
}

CLI::App& Program::addGroup(const std::string& name, const std::string& description) {
    auto* group = app_.add_subcommand(name, description);
    group->require_subcommand(1);
    return *group;
}

int Program::run(int argc, const char* const* argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error, std::cout, std::cerr) == 0 ? statusWithOutputWritten(done) : wrongUsage;
    }
    try {
        return statusWithOutputWritten(chosen_());
    } catch (const UsageError& error) {
        std::cerr << error.what() << "\n";
        return wrongUsage;
    } catch (...) {
        return report(std::current_exception());
    }
}

}  // namespace vorlinden::cli
