// vorlinden retry PATH
#include <iostream>
#include <memory>
#include <string>

#include "linux/cli/one_brain.h"
#include "linux/cli/verbs.h"
#include "linux/host/choices.h"

namespace vorlinden::cli {
namespace {

int run(const std::string& path) {
    const Machine machine;
    const auto choice = choiceAt(machine, path);
    const auto status = changeAndSync(machine, choice, [&]() -> platform::Task<> {
        host::Choices::retry(*choice.workspace, choice.place);
        co_return;
    });
    if (status != done) return status;
    const auto node = choice.workspace->store->nodeByPath(choice.place.brain.brainId, choice.place.path);
    if (node && !node->uploadError) {
        std::cerr << "The server has it now.\n";
        return done;
    }
    std::cerr << "The server refused it again" << (node ? ": " + *node->uploadError : std::string())
              << (node ? "\n" : "; see `vorlinden events`.\n");
    return needsPerson;
}

}  // namespace

void addRetry(Program& program) {
    const auto path = std::make_shared<std::string>();
    auto& verb =
        program.addVerb("retry", "Try a file again that the server refused", [path] { return run(*path); });
    verb.add_option("PATH", *path, "BRAIN/FOLDER/FILE, or a path in the mounted folder")->required();
}

}  // namespace vorlinden::cli
