// vorlinden server-ctl VERB --data DIR ...: another device, or an administrator, against a running server
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "linux/cli/verbs.h"
#include "linux/server/admin_client.h"
#include "platform/json.h"

namespace vorlinden::cli {
namespace {

struct Options {
    std::filesystem::path data;
    bool json = false;
    std::string target;  // SLUG or SLUG:PATH
    std::string second;  // FILE, FOLDER or the new path
    std::string title;
    bool folders = false;
    bool noFolders = false;

    std::string status = "503";
    std::string body;
    std::string contentType = "application/json";
    std::string method;
    std::string match;
    std::string times = "1";
    std::string skip = "0";
    std::string drop;
    std::string delay;
    bool clear = false;
};

using server::AdminParameters;

AdminParameters slugOf(const Options& options) {
    const auto colon = options.target.find(':');
    if (colon != std::string::npos && colon + 1 != options.target.size()) {
        throw UsageError("Name the brain alone, without a path.");
    }
    return {{"slug", options.target.substr(0, colon)}};
}

AdminParameters slugAndPathOf(const Options& options) {
    const auto colon = options.target.find(':');
    if (colon == std::string::npos || colon + 1 == options.target.size()) {
        throw UsageError("\"" + options.target + "\" should look like SLUG:PATH.");
    }
    return {{"slug", options.target.substr(0, colon)}, {"path", options.target.substr(colon + 1)}};
}

int ask(const Options& options, const std::string& verb, const AdminParameters& parameters,
        const std::optional<std::filesystem::path>& body = {}) {
    const auto answer = server::askServer(options.data, verb, parameters, body);
    if (options.json) std::cout << answer << "\n";
    return done;
}

int put(const Options& options) {
    auto parameters = slugAndPathOf(options);
    if (!options.title.empty()) parameters.emplace_back("title", options.title);
    return ask(options, "put", parameters, options.second);
}

int move(const Options& options) {
    auto parameters = slugAndPathOf(options);
    const auto prefix = parameters.front().second + ":";
    const bool hasSlug = options.second.starts_with(prefix);
    parameters.emplace_back("to", hasSlug ? options.second.substr(prefix.size()) : options.second);
    return ask(options, "mv", parameters);
}

int reset(const Options& options) {
    auto parameters = slugOf(options);
    if (options.folders) parameters.emplace_back("folders", "true");
    if (options.noFolders) parameters.emplace_back("folders", "false");
    return ask(options, "reset", parameters);
}

int import(const Options& options) {
    auto parameters = slugOf(options);
    parameters.emplace_back("folder", std::filesystem::absolute(options.second).string());
    const auto answer = server::askServer(options.data, "import", parameters);
    const platform::JSONDocument document(answer);
    std::cerr << document.root().requiredString("summary") << "\n";
    return done;
}

int fault(const Options& options) {
    if (options.clear) return ask(options, "fault", {{"clear", "true"}});
    AdminParameters parameters = {{"method", options.method},
                                  {"match", options.match},
                                  {"times", options.times},
                                  {"skip", options.skip}};
    if (!options.drop.empty()) {
        parameters.emplace_back("drop", options.drop);
    } else if (!options.delay.empty()) {
        parameters.emplace_back("delay", options.delay);
    } else {
        parameters.emplace_back("status", options.status);
        parameters.emplace_back("type", options.contentType);
    }
    if (options.body.empty()) return ask(options, "fault", parameters);
    return ask(options, "fault", parameters, options.body);
}

// Adds one verb of the family, with what all of them take.
class Family {
 public:
    Family(Program& program, CLI::App& parent, std::shared_ptr<Options> options)
        : program_(program), parent_(parent), options_(std::move(options)) {}

    template <class Run>
    CLI::App& add(const char* name, const char* description, Run run) {
        auto& verb = program_.addVerb(
            name, description, [options = options_, run] { return run(*options); }, &parent_);
        verb.add_option("--data", options_->data, "The server's folder")->required();
        verb.add_flag("--json", options_->json, "Print the server's answer");
        return verb;
    }
    CLI::App& addOnPath(const char* name, const char* description, int (*run)(const Options&)) {
        return withTarget(add(name, description, run), "SLUG:PATH", "A brain and a path in it");
    }
    CLI::App& addOnBrain(const char* name, const char* description, int (*run)(const Options&)) {
        return withTarget(add(name, description, run), "SLUG", "A brain");
    }

 private:
    CLI::App& withTarget(CLI::App& verb, const char* form, const char* description) {
        verb.add_option("target", options_->target, description)->type_name(form)->required();
        return verb;
    }

    Program& program_;
    CLI::App& parent_;
    std::shared_ptr<Options> options_;
};

void addFault(Family& family, Options& options) {
    auto& verb = family.add("fault", "Make requests fail: a status, a lost answer or a delay", fault);
    verb.add_option("--status", options.status, "Answer with this status instead of acting")
        ->capture_default_str();
    verb.add_option("--body", options.body, "File with the answer's body")->type_name("FILE");
    verb.add_option("--type", options.contentType, "The answer's media type")->capture_default_str();
    verb.add_option("--drop", options.drop,
                    "Close the connection before acting, or after it instead of answering")
        ->check(CLI::IsMember({"before", "after"}));
    verb.add_option("--delay", options.delay, "Answer so much later")->type_name("MILLISECONDS");
    verb.add_option("--method", options.method, "Only requests of this method");
    verb.add_option("--match", options.match, "Only requests whose target holds this text");
    verb.add_option("--times", options.times, "How many requests it hits")->capture_default_str();
    verb.add_option("--skip", options.skip, "How many matching requests pass first")->capture_default_str();
    verb.add_flag("--clear", options.clear, "Take all faults back");
}

}  // namespace

void addServerCtl(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& parent =
        program.addGroup("server-ctl", "Change what a running server holds, as another device would");
    Family family(program, parent, options);

    auto& putVerb = family.addOnPath("put", "Store a file", put);
    putVerb.add_option("file", options->second, "The content")->type_name("FILE")->required();
    putVerb.add_option("--title", options->title, "Its title; otherwise its name without extension");
    family.addOnPath("mv", "Move a file or folder", move)
        .add_option("to", options->second, "The new path")
        ->type_name("PATH")
        ->required();
    family.addOnPath("rm", "Delete a file or folder",
                     [](const Options& o) { return ask(o, "rm", slugAndPathOf(o)); });
    family.addOnPath("mkdir", "Make a folder",
                     [](const Options& o) { return ask(o, "mkdir", slugAndPathOf(o)); });
    auto& resetVerb = family.addOnBrain("reset", "Give every device a snapshot instead of changes", reset);
    auto* folders =
        resetVerb.add_flag("--folders", options->folders, "From now on list every folder, each with an id");
    resetVerb.add_flag("--no-folders", options->noFolders, "From now on list only empty folders")
        ->excludes(folders);
    family.addOnBrain("grant", "Give everybody a brain; makes it if there is none",
                      [](const Options& o) { return ask(o, "grant", slugOf(o)); });
    family.addOnBrain("revoke", "Take a brain from everybody; its content stays on the server",
                      [](const Options& o) { return ask(o, "revoke", slugOf(o)); });
    family.addOnBrain("import", "Bring a brain up to date with a folder", import)
        .add_option("folder", options->second, "The folder")
        ->required();
    family.add("expire", "End all access tokens, so that clients refresh them",
               [](const Options& o) { return ask(o, "expire", {}); });
    family.add("sign-out", "End all sessions, so that everybody has to sign in again",
               [](const Options& o) { return ask(o, "sign-out", {}); });
    addFault(family, *options);
}

}  // namespace vorlinden::cli
