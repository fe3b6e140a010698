// vorlinden item ...: the platform without a mount, for trial and tests
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "linux/cli/item_driver.h"
#include "linux/cli/verbs.h"

namespace vorlinden::cli {
namespace {

struct Options {
    std::string path;
    std::string second;
    std::optional<std::string> base;
    bool json = false;
};

std::string sentence(const platform::fileprovider::Error& error) {
    namespace fp = platform::fileprovider;
    if (error.text) return *error.text;
    if (error.domain == fp::cocoaErrorDomain && error.code == fp::userCancelled) return "Cancelled.";
    switch (error.code) {
        case fp::notAuthenticated:
            return "Nobody is signed in, or the server refuses this device. Sign in with `vorlinden login`.";
        case fp::serverUnreachable:
            return "The server can't be reached; what was changed waits.";
        case fp::noSuchItem:
            return "There is no such item.";
        default:
            return "It can't be done now (" + error.domain + " " + std::to_string(error.code) + ").";
    }
}

int exitStatus(const std::optional<platform::fileprovider::Error>& error) {
    namespace fp = platform::fileprovider;
    if (!error) return done;
    const bool provider = error->domain == fp::errorDomain;
    if (provider && error->code == fp::notAuthenticated) return needsPerson;
    return provider && error->code == fp::serverUnreachable ? somethingWaits : failed;
}

int tell(const Options& options, const ItemReply& reply) {
    std::cout << (options.json ? replyJSON(reply) + "\n" : replyText(reply));
    if (reply.error && !options.json) std::cerr << sentence(*reply.error) << "\n";
    return exitStatus(reply.error);
}

// The content alone on standard output.
int cat(const Options& options) {
    const Machine machine;
    const auto reply = ItemDriver(machine).fetch(options.path);
    if (!reply.file) return tell(options, reply);
    const auto bytes = machine.system.files->read(*reply.file);
    machine.system.files->remove(*reply.file);
    std::cout.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return done;
}

using Operation = std::function<ItemReply(ItemDriver&, const Options&)>;

int drive(const Options& options, const Operation& operation) {
    const Machine machine;
    ItemDriver driver(machine);
    return tell(options, operation(driver, options));
}

ItemReply create(ItemDriver& driver, const Options& o) {
    return driver.create(o.path,
                         o.second.empty() ? std::nullopt : std::optional<std::filesystem::path>(o.second));
}

}  // namespace

void addItem(Program& program) {
    auto& item = program.addGroup("item", "Change items without a mount, for trial and tests");
    const auto options = std::make_shared<Options>();
    const auto addVerb = [&](const char* name, const char* description,
                             std::function<int(const Options&)> run) -> CLI::App& {
        auto& verb = program.addVerb(
            name, description, [options, run] { return run(*options); }, &item);
        verb.add_flag("--json", options->json, "Print the reply as one line of JSON");
        return verb;
    };
    const auto add = [&](const char* name, const char* description, Operation operation) -> CLI::App& {
        auto& verb =
            addVerb(name, description, [operation](const Options& o) { return drive(o, operation); });
        verb.add_option("PATH", options->path, "BRAIN/FOLDER/FILE")->required();
        return verb;
    };
    add("create", "Make a file, or without FILE a folder", create)
        .add_option("FILE", options->second, "The content");
    auto& edit = add("edit", "Give a file new content", [](ItemDriver& driver, const Options& o) {
        return driver.edit(o.path, o.second, o.base);
    });
    edit.add_option("FILE", options->second, "The content")->required();
    edit.add_option("--base", options->base, "The content version that was edited, if not the present one");
    add("rename", "Give an item a new name",
        [](ItemDriver& driver, const Options& o) { return driver.rename(o.path, o.second); })
        .add_option("NAME", options->second)
        ->required();
    add("move", "Move an item into another folder",
        [](ItemDriver& driver, const Options& o) { return driver.move(o.path, o.second); })
        .add_option("FOLDER", options->second, "BRAIN/FOLDER")
        ->required();
    add("rm", "Delete an item", [](ItemDriver& driver, const Options& o) { return driver.remove(o.path); });
    addVerb("ls", "List a folder: names, content versions, identifiers", [](const Options& o) {
        return drive(o, [](ItemDriver& driver, const Options& p) { return driver.list(p.path); });
    }).add_option("PATH", options->path, "BRAIN/FOLDER; otherwise the brains");
    addVerb("cat", "Print a file's content", cat)
        .add_option("PATH", options->path, "BRAIN/FOLDER/FILE")
        ->required();
    addItemJournal(program, item);
}

}  // namespace vorlinden::cli
