#include "linux/cli/program.h"

#include <cstdio>
#include <iostream>
#include <utility>

#include "linux/cli/explain.h"

namespace vorlinden::cli {

Program::Program() : app_("Your team's knowledge store as an ordinary folder.", "vorlinden") {
    app_.require_subcommand(1);
    app_.failure_message([](const CLI::App* app, const CLI::Error& error) {
        return std::string(error.what()) + "\nSee `" + app->get_name() + " --help`.\n";
    });
}

CLI::App& Program::addVerb(const std::string& name, const std::string& description, std::function<int()> run,
                           CLI::App* parent) {
    auto* verb = (parent ? parent : &app_)->add_subcommand(name, description);
    verb->callback([this, run = std::move(run)] { chosen_ = run; });
    return *verb;
}

int Program::run(int argc, const char* const* argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error, std::cout, std::cerr) == 0 ? done : wrongUsage;
    }
    try {
        const int status = chosen_();
        // A full disk or a closed pipe behind standard output must not pass for success.
        std::cout.flush();
        if (!std::cout || std::fflush(stdout) != 0) {
            std::cerr << "The result could not be written to standard output.\n";
            return failed;
        }
        return status;
    } catch (...) {
        const auto explanation = explain(std::current_exception());
        std::cout.flush();
        std::cerr << explanation.sentence << "\n";
        return explanation.status;
    }
}

}  // namespace vorlinden::cli
