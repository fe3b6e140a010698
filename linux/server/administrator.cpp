#include "linux/server/administrator.h"

#include "linux/server/refusal.h"

namespace vorlinden::server {

namespace {

Author administrator() {
    return {AuthorKind::agent, "administrator", "server-ctl"};
}

}  // namespace

std::string Administrator::put(const std::string& slug, const std::string& path,
                               const IncomingContent& content,
                               const std::optional<std::string>& title) const {
    return edit(slug, [&](WriteTransaction& transaction, BrainEditor& editor) {
        Contents::store(transaction, content);
        editor.put(path, title, {content.kind(), content.ref()});
    });
}

std::string Administrator::put(const std::string& slug, const std::string& path,
                               std::string_view bytes) const {
    IncomingContent content(storage_);
    content.add(bytes);
    content.finish();
    return put(slug, path, content);
}

std::string Administrator::move(const std::string& slug, const std::string& from,
                                const std::string& to) const {
    return edit(slug, [&](auto&, BrainEditor& editor) { editor.move(from, to); });
}

std::string Administrator::remove(const std::string& slug, const std::string& path) const {
    return edit(slug, [&](auto&, BrainEditor& editor) {
        if (!editor.remove(path)) throw Refusal::notFound(path);
    });
}

std::string Administrator::makeFolder(const std::string& slug, const std::string& path) const {
    return edit(slug, [&](auto&, BrainEditor& editor) { editor.makeFolder(path); });
}

std::string Administrator::reset(const std::string& slug, std::optional<bool> listFolders) const {
    WriteTransaction transaction(storage_);
    const auto row = brain(transaction.database(), slug);
    if (listFolders) Brains::setListsFolders(transaction, row, *listFolders);
    Feed feed(transaction.database(), row.key);
    for (const auto& hash : feed.restart(storage_.random(), storage_.clock().now())) {
        Contents::dropIfUnused(transaction, hash);
    }
    auto cursor = feed.head().cursor;
    transaction.commit();
    return cursor;
}

void Administrator::grant(const std::string& slug) const {
    WriteTransaction transaction(storage_);
    Brains::setGranted(transaction, Brains::make(transaction, slug), true);
    transaction.commit();
}

void Administrator::revoke(const std::string& slug) const {
    WriteTransaction transaction(storage_);
    Brains::setGranted(transaction, brain(transaction.database(), slug), false);
    transaction.commit();
}

ImportReport Administrator::import(const std::string& slug, const std::filesystem::path& folder) const {
    return importFolder(storage_, slug, folder, options_.keepFeed);
}

void Administrator::expireAccessTokens() const {
    authorization_.expireAccessTokens();
}
void Administrator::endSessions() const {
    authorization_.endSessions();
}

template <class Change>
std::string Administrator::edit(const std::string& slug, const Change& change) const {
    WriteTransaction transaction(storage_);
    BrainEditor editor(transaction, brain(transaction.database(), slug), administrator(), {},
                       options_.keepFeed);
    change(transaction, editor);
    auto cursor = editor.publish();
    transaction.commit();
    return cursor;
}

BrainRow Administrator::brain(Database& database, const std::string& slug) const {
    auto row = Brains::bySlug(database, slug);
    if (!row) throw Refusal(404, "NO_SUCH_BRAIN", "There is no brain \"" + slug + "\". Grant it to make it.");
    return *row;
}

}  // namespace vorlinden::server
