// The frame of the program `vorlinden`: verbs, exit statuses, and the one place where a failure becomes a
// sentence.
//
// A verb is one file verb_NAME.cpp with one function that adds it (see verbs.h). What a person must read goes
// to standard error, what a script or pipe takes goes to standard output. A verb simply throws what it can't
// cope with: run() prints the sentence of linux/host/explain.h and turns it into an exit status.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace vorlinden::cli {

enum ExitStatus : int {
    done = 0,
    failed = 1,
    wrongUsage = 2,
    needsPerson = 3,     // somebody has to sign in, or to settle something
    somethingWaits = 4,  // nothing failed, but not everything is with the server yet
};

// The command line made sense to the parser but not to the verb; the text says what to write instead.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Built and run once, on the main thread.
class Program {
 public:
    Program();

    // Adds a verb, or one below `parent`. Options are bound to memory that `run` shares; run is called after
    // the whole line was parsed, and gives the exit status.
    CLI::App& addVerb(const std::string& name, const std::string& description, std::function<int()> run,
                      CLI::App* group = nullptr);
    // A word that only stands before verbs of its own.
    CLI::App& addGroup(const std::string& name, const std::string& description);

    int run(int argc, const char* const* argv);

 private:
    CLI::App app_;
    std::function<int()> chosen_;
};

}  // namespace vorlinden::cli
