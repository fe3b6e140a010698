#include "linux/server/brains.h"

#include "linux/server/feed.h"
#include "linux/server/refusal.h"
#include "platform/text.h"
#include "platform/uuid.h"

namespace vorlinden::server::Brains {

namespace {

BrainRow rowOf(const Query& query) {
    return {query.integer(0), query.text(1),         query.text(2),
            query.text(3),    query.integer(4) != 0, query.integer(5) != 0};
}

std::optional<BrainRow> firstOf(Query query) {
    if (!query.next()) return std::nullopt;
    return rowOf(query);
}

void checkSlug(const std::string& slug) {
    const bool usable = !slug.empty() && slug.size() <= 255 && platform::isValidUTF8(slug) &&
                        slug.find_first_of(std::string_view("/:=\\\0", 5)) == std::string::npos;
    if (!usable) throw Refusal::badRequest("A brain can't have the slug \"" + slug + "\".");
}

}  // namespace

std::vector<BrainRow> all(Database& database) {
    std::vector<BrainRow> brains;
    auto query =
        database.query("SELECT brain, id, slug, name, granted, lists_folders FROM brains ORDER BY slug");
    while (query.next())
        brains.push_back(rowOf(query));
    return brains;
}

std::optional<BrainRow> byId(Database& database, const std::string& id) {
    return firstOf(
        database.query("SELECT brain, id, slug, name, granted, lists_folders FROM brains WHERE id = ?", id));
}

std::optional<BrainRow> bySlug(Database& database, const std::string& slug) {
    return firstOf(database.query(
        "SELECT brain, id, slug, name, granted, lists_folders FROM brains WHERE slug = ?", slug));
}

BrainRow make(WriteTransaction& transaction, const std::string& slug) {
    auto& database = transaction.database();
    if (auto brain = bySlug(database, slug)) return *brain;
    checkSlug(slug);
    auto& storage = transaction.storage();
    database.run("INSERT INTO brains (id, slug, name) VALUES (?, ?, ?)",
                 platform::UUID::random(storage.random()).lowerText(), slug, slug);
    const auto brain = bySlug(database, slug).value();
    Feed(database, brain.key).restart(storage.random(), storage.clock().now());
    return brain;
}

void setGranted(WriteTransaction& transaction, const BrainRow& brain, bool granted) {
    transaction.database().run("UPDATE brains SET granted = ? WHERE brain = ?", granted, brain.key);
}

void setListsFolders(WriteTransaction& transaction, const BrainRow& brain, bool listsFolders) {
    transaction.database().run("UPDATE brains SET lists_folders = ? WHERE brain = ?", listsFolders,
                               brain.key);
}

std::string teamId(Database& database) {
    auto query = database.query("SELECT value FROM settings WHERE key = 'team_id'");
    query.next();
    return query.text(0);
}

}  // namespace vorlinden::server::Brains
