// vorlinden item journal create|edit|mv|rm PATH [FILE]: local changes that wait, as after an offline write
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include "linux/cli/machine.h"
#include "linux/cli/surroundings.h"
#include "linux/cli/verbs.h"
#include "linux/host/offline_changes.h"
#include "linux/host/workspace.h"

namespace vorlinden::cli {
namespace {

struct Options {
    std::string path;
    std::string second;  // FILE, or the new path
};

struct Change {
    host::WorkspaceRef workspace;
    host::TreeSurroundings surroundings;
    Options options;

    host::TreePath place() const { return at(options.path); }
    host::TreePath at(const std::string& text) const {
        return host::treePath(*workspace->store, text, surroundings);
    }
    platform::Data content() const { return workspace->system.files->read(options.second); }
};

using Action = std::function<std::int64_t(const Change&)>;

int journal(const Options& options, const Action& action) {
    const Machine machine;
    const Change change{host::Workspace::open(machine.system, machine.folders), treeSurroundings(machine),
                        options};
    std::int64_t row = 0;
    machine.runInterruptibly([&]() -> platform::Task<> {
        const auto hold = [&]() -> platform::Task<> {
            row = action(change);
            co_return;
        };
        co_await change.workspace->locked(hold);
    });
    std::cout << row << "\n";
    return done;
}

}  // namespace

void addItemJournal(Program& program, CLI::App& item) {
    auto& group = *item.add_subcommand("journal", "Put a change into the journal as an offline write would");
    group.require_subcommand(1);
    const auto options = std::make_shared<Options>();
    const auto add = [&](const char* name, const char* description, Action action) -> CLI::App& {
        auto& verb = program.addVerb(
            name, description, [options, action] { return journal(*options, action); }, &group);
        verb.add_option("PATH", options->path, "BRAIN/FOLDER/FILE, or a path in the mounted folder")
            ->required();
        return verb;
    };
    const auto addWithFile = [&](const char* name, const char* description, Action action) {
        add(name, description, std::move(action))
            .add_option("FILE", options->second, "The content")
            ->required();
    };
    using namespace host;
    addWithFile("create", "A new file",
                [](const Change& c) { return OfflineChanges::create(*c.workspace, c.place(), c.content()); });
    addWithFile("edit", "New content of a file",
                [](const Change& c) { return OfflineChanges::edit(*c.workspace, c.place(), c.content()); });
    add("mv", "A move or a new name",
        [](const Change& c) { return OfflineChanges::move(*c.workspace, c.place(), c.at(c.options.second)); })
        .add_option("TO", options->second, "The new path")
        ->required();
    add("rm", "A deletion", [](const Change& c) { return OfflineChanges::remove(*c.workspace, c.place()); });
}

}  // namespace vorlinden::cli
