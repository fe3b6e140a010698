// An extension with a brain on a server, what a user does to its files, and what comes of that in few words.
#pragma once

#include <algorithm>
#include <sstream>

#include "synckit/conflicts/conflict_spool.h"
#include "synckit/upload/upload_planner.h"
#include "tests/fileprovider/extension_fixture.h"
#include "tests/fileprovider/fake_brain.h"
#include "tests/support/tree.h"

namespace vorlinden::tests {

// What the handler of a write heard.
struct Written {
    int calls = 0;
    std::optional<Item> item;
    bool fetchContent = false;
    std::optional<Error> error;
    std::vector<ItemIdentifier> signalled;  // by then, sorted
    std::shared_ptr<protocol::Progress> progress;

    // "NAME vVERSION" with what else there is to say, "done" of a delete, or "error CODE TEXT".
    std::string text() const {
        if (error) return "error " + std::to_string(error->code) + (error->text ? " " + *error->text : "");
        if (!item) return "done";
        const auto version = std::string(item->itemVersion.contentVersion.view());
        const auto trouble = item->uploadingError ? " (" + *item->uploadingError->text + ")" : "";
        return item->filename + " v" + version + trouble + (fetchContent ? " fetch" : "");
    }
};
using WrittenPtr = std::shared_ptr<Written>;

// The brain holds "Notes/a" and "b" in version 1, here and on the server.
class WriteWorld : private FoldersInMemory, public ExtensionWorld {
 public:
    WriteWorld() : server(*machine->session) {
        addBrain();
        catalogue().setMeta("device-1", MetaKey::deviceId);
        catalogue().setMeta("Studio", MetaKey::deviceName);
        add(folderNode(brain, "Notes"));
        for (const auto* path : {"Notes/a", "b"}) {
            add(fileNode(brain, path));
            server.files[path] = "old";
        }
        wakeUp_ = machine->notifications->listen(SyncSignal::syncNowName, [this] { checkWakeUp(); });
        initially_ = state();
    }

    FakeBrain server;

    // What the user does, as one sentence: "create PATH CONTENT", "folder PATH", "edit PATH CONTENT [BASE]",
    // "empty PATH", "touch PATH", "move PATH PATH", "remove PATH"; "%" stands for a blank and "~" for a byte
    // that makes no text. start() leaves it to the loop to go on.
    WrittenPtr start(const std::string& act) {
        std::istringstream words(act);
        std::string verb, path, second, base = "1";
        words >> verb >> path >> second >> base;
        std::ranges::replace(path, '%', ' ');
        std::ranges::replace(second, '~', '\xff');
        if (verb == "create") return create(path, fileWith(second), {});
        if (verb == "folder") return create(path, {}, platform::FileType::folder());
        if (verb == "edit") return modify(path, path, protocol::contentsField, fileWith(second), base);
        if (verb == "empty") return modify(path, path, protocol::contentsField, {}, base);
        if (verb == "touch") return modify(path, "x", 64 | 128, {}, base);
        if (verb == "move") return modify(path, second, 6, {}, base);
        return remove(identifierOf(path));
    }
    // Several acts, each to its end, parted by "; ". Gives what the last one heard.
    WrittenPtr run(const std::string& acts) {
        WrittenPtr last;
        for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 2) {
            end = acts.find("; ", begin);
            last = start(acts.substr(begin, end - begin));
            machine->loop.runUntilIdle();
            EXPECT_EQ(last->calls, 1) << acts;
        }
        return last;
    }

    WrittenPtr create(const std::string& path, const protocol::Contents& contents,
                      std::optional<platform::FileType> type) {
        return started([&](auto handler) {
            return extension().createItem({parentOf(path), nameOf(path), type}, 0, contents, 0, {}, handler);
        });
    }
    WrittenPtr modify(const std::string& path, const std::string& newPath, std::uint32_t fields,
                      const protocol::Contents& contents, const std::string& base) {
        Item item;
        item.itemIdentifier = identifierOf(path);
        item.filename = nameOf(newPath);
        item.parentItemIdentifier = parentOf(newPath);
        return started([&](auto handler) {
            return extension().modifyItem(item, {Data::copyOf(base), {}}, fields, contents, 0, {}, handler);
        });
    }
    WrittenPtr remove(const ItemIdentifier& identifier) {
        return started([&](auto handler) {
            return extension().deleteItem(identifier, {}, 0, {}, [handler](auto error) {
                handler(std::nullopt, 0u, false, std::move(error));
            });
        });
    }

    // "Notes/x" lies in a folder, "x" in the brain, "/x" at the root; "trash:/x" and "other:/x" nowhere that
    // could take it.
    ItemIdentifier parentOf(const std::string& path) {
        const auto slash = path.rfind('/');
        if (slash == std::string::npos) return SyncItemIdentifier::brain(brain).rawValue();
        if (slash == 0) return protocol::rootContainerItemIdentifier;
        if (path.starts_with("trash:")) return protocol::trashContainerItemIdentifier;
        if (path.starts_with("other:")) return SyncItemIdentifier::brain(numberedUUID(2)).rawValue();
        return identifierOf(path.substr(0, slash));
    }
    ItemIdentifier identifierOf(const std::string& path) {
        const auto node = catalogue().nodeByPath(brain, path);
        return node ? node->identifier().rawValue() : SyncItemIdentifier::node(brain, "unknown").rawValue();
    }
    std::filesystem::path fileWith(const std::string& content) {
        const auto file = machine->folder / ("handed-over-" + std::to_string(++files_));
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }
    // The lock file as another process has it open.
    std::unique_ptr<platform::LockFile> openLock() {
        const auto file = AppGroup::syncExecutionLockURL(machine->system());
        return platform::posixFileSystem()->openLockFile(file);
    }
    std::unique_ptr<platform::LockFile> otherProcess;  // holds the lock while it is there

    ConflictSpool spool() { return ConflictSpool::inAppGroup(machine->system()); }

    // What is no more ("-") and what is new ("+") since the beginning, in tree, journal, spool, on the server
    // and in the log.
    std::string changes() {
        const auto after = state();
        std::vector<std::string> gone, fresh;
        std::ranges::set_difference(initially_, after, std::back_inserter(gone));
        std::ranges::set_difference(after, initially_, std::back_inserter(fresh));
        std::string text;
        for (const auto& line : gone)
            text += (text.empty() ? "-" : " | -") + line;
        for (const auto& line : fresh)
            text += (text.empty() ? "+" : " | +") + line;
        std::ranges::replace(text, '\xff', '~');
        return text;
    }

 private:
    static std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

    template <class Operation>
    WrittenPtr started(Operation operation) {
        auto written = std::make_shared<Written>();
        const auto before = machine->manager->signalled().size();
        const auto wakeUps = machine->notifications->count(SyncSignal::syncNowName);
        written->progress = operation([=, this](auto item, std::uint32_t fields, bool fetch, auto error) {
            ++written->calls;
            written->item = std::move(item);
            written->fetchContent = fetch;
            written->error = std::move(error);
            EXPECT_EQ(fields, 0u);
            if (!machine) return;  // it ended under the write
            const auto signalled = machine->manager->signalled();
            written->signalled = {signalled.begin() + static_cast<std::ptrdiff_t>(before), signalled.end()};
            std::ranges::sort(written->signalled);
            EXPECT_EQ(machine->notifications->count(SyncSignal::syncNowName), wakeUps + 1);
            EXPECT_EQ(signalledAtWakeUp_, signalled.size());
        });
        return written;
    }
    // All signals are out, and the lock is free for the host.
    void checkWakeUp() {
        signalledAtWakeUp_ = machine->manager->signalled().size();
        EXPECT_TRUE(otherProcess || openLock()->tryLock() == 0);
    }

    // Sorted lines.
    std::vector<std::string> state() {
        std::vector<std::string> lines = tree(catalogue(), brain);
        for (const auto& change : catalogue().pendingChanges(brain)) {
            lines.push_back("journal " + std::string(rawValue(change.changeKind)) + " " +
                            (change.fromPath ? *change.fromPath + " > " : "") + change.path);
        }
        SQLiteDatabase raw(AppGroup::syncDatabaseURL(machine->system()).string());
        for (const auto& row : raw.query("SELECT item_identifier, deleted FROM changes_log")) {
            const auto item = SyncItemIdentifier::fromRawValue(row.string(0)).value();
            const auto& nodeId = std::get<SyncItemIdentifier::Node>(item.value).nodeId;
            lines.push_back((row.int64(1) != 0 ? "log -" : "log +") + shortId(nodeId));
        }
        for (const auto& [path, content] : server.files)
            lines.push_back("server " + path + "=" + content);
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(spool().directory(), none)) {
            const auto key = entry.path().filename().string();
            lines.push_back("spool " + (key.starts_with("node-") ? "node" : key) + "=" +
                            contentOf(entry.path()));
        }
        std::ranges::sort(lines);
        return lines;
    }

    int files_ = 0;
    std::size_t signalledAtWakeUp_ = 0;
    std::vector<std::string> initially_;
    std::unique_ptr<platform::NotificationCenter::Registration> wakeUp_;
};

}  // namespace vorlinden::tests
