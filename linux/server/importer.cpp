#include "linux/server/importer.h"

#include <map>
#include <memory>
#include <vector>

#include "linux/server/brain_editor.h"
#include "linux/server/brains.h"
#include "linux/server/folder_walk.h"
#include "linux/server/refusal.h"

namespace vorlinden::server {

namespace {

constexpr std::size_t mostOps = 500;                  // of one entry
constexpr std::int64_t mostBytes = 64 * 1024 * 1024;  // of one transaction

// Of each path that the last import brought, the content; empty for a folder.
using Imported = std::map<std::string, std::string>;

Imported lastImport(Storage& storage, const BrainRow& brain) {
    Imported imported;
    ReadTransaction transaction(storage);
    auto query = transaction.database().query("SELECT path, hash FROM imported WHERE brain = ?", brain.key);
    while (query.next())
        imported.emplace(query.text(0), query.text(1));
    return imported;
}

class Importer {
 public:
    Importer(Storage& storage, BrainRow brain, const std::filesystem::path& folder, std::int64_t keepFeed,
             ImportReport& report)
        : storage_(storage),
          brain_(std::move(brain)),
          folder_(folder),
          keepFeed_(keepFeed),
          report_(report),
          imported_(lastImport(storage, brain_)) {}

    // What goes makes room for what comes, and only folders that no file implies are told of by themselves.
    void run() {
        const auto walk = FolderWalk::of(folder_, report_);
        removeGone(walk);
        readFiles(walk);
        makeFolders(walk);
    }

 private:
    // One transaction with one entry.
    struct Batch {
        Batch(Importer& importer)
            : transaction(importer.storage_),
              editor(transaction, importer.brain_, {AuthorKind::agent, "server", "import"}, {},
                     importer.keepFeed_) {}
        void commit() {
            editor.publish();
            transaction.commit();
        }

        WriteTransaction transaction;
        BrainEditor editor;
    };
    struct ReadFile {
        std::string path;
        std::unique_ptr<IncomingContent> content;
    };

    // Runs `step` on each of `items` in batches.
    template <class Items, class Step>
    void inBatches(const Items& items, const Step& step) {
        for (auto item = items.begin(); item != items.end();) {
            Batch batch(*this);
            while (item != items.end() && batch.editor.opCount() < mostOps)
                step(batch, *item++);
            batch.commit();
        }
    }

    void removeGone(const FolderWalk& walk) {
        std::vector<std::string> gone;
        for (const auto& [path, hash] : imported_) {
            const auto& present = hash.empty() ? walk.folders : walk.files;
            if (!present.contains(path) && walk.isKnown(path)) gone.push_back(path);
        }
        // From the last path to the first: a folder comes after all that lies in it.
        const std::vector<std::string> order(gone.rbegin(), gone.rend());
        inBatches(order, [&](Batch& batch, const std::string& path) { removeOne(batch, path); });
    }

    // Only what is still as the import left it: a file that somebody has changed is theirs, and so is a
    // folder with something in it.
    void removeOne(Batch& batch, const std::string& path) {
        const auto node = batch.editor.tree().find(path);
        const auto hash = imported_.at(path);
        const bool isOurs =
            node && (node->isDirectory ? hash.empty() && batch.editor.tree().below(path).empty()
                                       : node->content.hash == hash);
        if (isOurs) {
            batch.editor.remove(path);
            ++report_.deleted;
        } else if (node) {
            ++report_.kept;
        }
        batch.transaction.database().run("DELETE FROM imported WHERE brain = ? AND path = ?", brain_.key,
                                         path);
        imported_.erase(path);
    }

    void readFiles(const FolderWalk& walk) {
        std::vector<ReadFile> waiting;
        std::int64_t bytes = 0;
        for (const auto& path : walk.files) {
            ReadFile file{path, std::make_unique<IncomingContent>(storage_)};
            if (!readInto(*file.content, folder_ / path)) {
                ++report_.unreadable;
                continue;
            }
            if (wasImported(path, file.content->ref().hash)) {
                ++report_.unchanged;
                continue;
            }
            bytes += file.content->size();
            waiting.push_back(std::move(file));
            if (waiting.size() >= mostOps || bytes >= mostBytes) {
                putAll(waiting);
                waiting.clear();
                bytes = 0;
            }
        }
        putAll(waiting);
    }

    bool wasImported(const std::string& path, const std::string& hash) const {
        const auto last = imported_.find(path);
        return last != imported_.end() && last->second == hash;
    }

    void putAll(const std::vector<ReadFile>& files) {
        inBatches(files, [&](Batch& batch, const ReadFile& file) { putOne(batch, file); });
    }

    void putOne(Batch& batch, const ReadFile& file) {
        const auto& [path, content] = file;
        const auto node = batch.editor.tree().find(path);
        const auto last = imported_.find(path);
        const bool isSame = node && !node->isDirectory && node->content.hash == content->ref().hash;
        if (!isSame && node && (last == imported_.end() || node->content.hash != last->second)) {
            ++report_.kept;
            return;
        }
        if (!isSame && !put(batch, file)) return;
        ++(isSame ? report_.unchanged : node ? report_.changed : report_.added);
        note(batch, path, content->ref().hash);
    }

    // False if members have put something in the way.
    bool put(Batch& batch, const ReadFile& file) {
        try {
            Contents::store(batch.transaction, *file.content);
            batch.editor.put(file.path, std::nullopt, {file.content->kind(), file.content->ref()});
            return true;
        } catch (const Refusal&) {
            ++report_.kept;
            return false;
        }
    }

    // From the last path to the first, so that a folder is there already if another lies in it.
    void makeFolders(const FolderWalk& walk) {
        const std::vector<std::string> order(walk.folders.rbegin(), walk.folders.rend());
        inBatches(order, [&](Batch& batch, const std::string& path) {
            const bool isNew = !imported_.contains(path);
            const auto node = batch.editor.tree().find(path);
            if (!isNew || (node && !node->isDirectory)) return;
            if (!node && !makeFolder(batch, path)) return;
            note(batch, path, std::nullopt);
        });
    }

    bool makeFolder(Batch& batch, const std::string& path) {
        try {
            batch.editor.makeFolder(path);
            ++report_.added;
            return true;
        } catch (const Refusal&) {
            ++report_.kept;
            return false;
        }
    }

    void note(Batch& batch, const std::string& path, const std::optional<std::string>& hash) {
        batch.transaction.database().run(
            "INSERT OR REPLACE INTO imported (brain, path, hash) VALUES (?, ?, ?)", brain_.key, path, hash);
    }

    Storage& storage_;
    const BrainRow brain_;
    const std::filesystem::path folder_;
    const std::int64_t keepFeed_;
    ImportReport& report_;
    Imported imported_;
};

BrainRow brainFor(Storage& storage, const std::string& slug) {
    WriteTransaction transaction(storage);
    auto brain = Brains::make(transaction, slug);
    transaction.commit();
    return brain;
}

void mention(std::string& text, std::int64_t count, const char* what) {
    if (count == 0) return;
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
}

}  // namespace

std::string summary(const ImportReport& report) {
    std::string text = "Imported into " + report.slug + ": " + std::to_string(report.added) + " new, " +
                       std::to_string(report.changed) + " changed, " + std::to_string(report.deleted) +
                       " deleted, " + std::to_string(report.unchanged) + " unchanged";
    if (report.kept > 0) text += ", " + std::to_string(report.kept) + " kept as changed on the server";
    std::string left;
    mention(left, report.links, "links");
    mention(left, report.special, "sockets, pipes or devices");
    mention(left, report.unreadable, "unreadable");
    mention(left, report.unusableNames, "with names that can't be shared");
    return text + (left.empty() ? "." : "; skipped " + std::to_string(report.skipped()) + " (" + left + ").");
}

ImportReport importFolder(Storage& storage, const std::string& slug, const std::filesystem::path& folder,
                          std::int64_t keepFeed) {
    ImportReport report;
    report.slug = slug;
    Importer(storage, brainFor(storage, slug), folder, keepFeed, report).run();
    return report;
}

}  // namespace vorlinden::server
