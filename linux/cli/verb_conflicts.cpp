// vorlinden conflicts [--json], and conflicts diff|keep-mine|keep-theirs COPY
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "linux/cli/one_brain.h"
#include "linux/cli/verbs.h"
#include "linux/host/choices.h"
#include "linux/host/conflict_copies.h"

namespace vorlinden::cli {
namespace {

int list(bool json) {
    const Machine machine;
    const auto workspace = host::Workspace::open(machine.system, machine.folders);
    const host::EventHistory history(machine.system, machine.folders.state);
    const auto copies = host::conflictCopies(*workspace->store, history.events());
    if (json) {
        std::cout << host::conflictCopiesJSON(copies) << "\n";
    } else if (copies.empty()) {
        std::cerr << "There are no conflict copies.\n";
    } else {
        std::cout << host::conflictCopiesText(copies);
    }
    return done;
}

// A folder of this process alone, gone with the object.
class ScratchFolder {
 public:
    ScratchFolder() {
        auto name = (std::filesystem::temp_directory_path() / "vorlinden-diff.XXXXXX").string();
        if (!::mkdtemp(name.data())) throw platform::FileError(errno, name);
        path_ = name;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

 private:
    std::filesystem::path path_;
};

// Runs diff(1) on this process' standard output. Gives whether it could compare.
bool showDifference(const std::string& nameA, const std::filesystem::path& a, const std::string& nameB,
                    const std::filesystem::path& b) {
    std::cout.flush();
    const pid_t child = ::fork();
    if (child == 0) {
        ::execlp("diff", "diff", "-u", "--label", nameA.c_str(), "--label", nameB.c_str(), "--", a.c_str(),
                 b.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) <= 1;
}

int diff(const std::string& path) {
    const Machine machine;
    const auto choice = choiceAt(machine, path);
    const auto listing = host::Choices::conflictCopy(*choice.workspace, choice.place);
    const host::TreePath original{choice.place.brain, listing.original};
    platform::Data mine;
    platform::Data theirs;
    machine.runInterruptibly([&]() -> platform::Task<> {
        mine = co_await host::Choices::content(choice.workspace, choice.place);
        if (!listing.originalExists) co_return;
        theirs = co_await host::Choices::content(choice.workspace, original);
    });
    const ScratchFolder scratch;
    machine.system.files->writeUnflushed(mine, scratch.path() / "mine");
    machine.system.files->writeUnflushed(theirs, scratch.path() / "theirs");
    const auto nameOfOriginal = original.text() + (listing.originalExists ? "" : " (gone)");
    return showDifference(nameOfOriginal, scratch.path() / "theirs", choice.place.text(),
                          scratch.path() / "mine")
               ? done
               : failed;
}

int keepMine(const std::string& path) {
    const Machine machine;
    const auto choice = choiceAt(machine, path);
    return changeAndSync(machine, choice,
                         [&] { return host::Choices::keepMine(choice.workspace, choice.place); });
}

int keepTheirs(const std::string& path) {
    const Machine machine;
    const auto choice = choiceAt(machine, path);
    return changeAndSync(machine, choice, [&]() -> platform::Task<> {
        host::Choices::keepTheirs(*choice.workspace, choice.place);
        co_return;
    });
}

}  // namespace

void addConflicts(Program& program) {
    const auto json = std::make_shared<bool>(false);
    auto& verb = program.addVerb("conflicts", "List the conflict copies, each with the file it came from",
                                 [json] { return list(*json); });
    verb.add_flag("--json", *json, "One line of JSON, for scripts");
    const auto copy = std::make_shared<std::string>();
    const auto add = [&](const char* name, const char* description, int (*run)(const std::string&)) {
        program
            .addVerb(
                name, description, [copy, run] { return run(*copy); }, &verb)
            .add_option("COPY", *copy, "The copy: BRAIN/FOLDER/FILE, or a path in the mounted folder")
            ->required();
    };
    add("diff", "Show how a copy differs from the file it came from", diff);
    add("keep-mine", "Make the copy's content the file's; the copy goes", keepMine);
    add("keep-theirs", "Leave the file as it is; the copy goes", keepTheirs);
}

}  // namespace vorlinden::cli
