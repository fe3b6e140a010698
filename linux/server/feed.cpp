#include "linux/server/feed.h"

#include <algorithm>

#include "linux/server/digest.h"
#include "platform/timestamp.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::server {

Feed::Position Feed::head() const {
    auto query = database_.query(
        "SELECT seq, cursor, at FROM entries WHERE brain = ? ORDER BY seq DESC LIMIT 1", brain_);
    if (!query.next()) return {};
    return {query.integer(0), query.text(1), platform::parseTimestamp(query.text(2)).value_or(Timestamp{})};
}

std::optional<std::int64_t> Feed::find(const std::string& cursor) const {
    auto query = database_.query("SELECT seq FROM entries WHERE brain = ? AND cursor = ?", brain_, cursor);
    if (!query.next()) return std::nullopt;
    return query.integer(0);
}

std::vector<std::string> Feed::entriesAfter(std::int64_t seq) const {
    std::vector<std::string> entries;
    auto query =
        database_.query("SELECT body FROM entries WHERE brain = ? AND seq > ? ORDER BY seq", brain_, seq);
    while (query.next())
        entries.push_back(query.text(0));
    return entries;
}

Feed::Position Feed::next(platform::Random& random, Timestamp now) const {
    const auto last = head();
    return {last.seq + 1, randomName(random), std::max(now, last.at + std::chrono::milliseconds(1))};
}

void Feed::append(const Position& position, const Author& author, const std::vector<Op>& ops) {
    insert(position, SyncJSON::encode(FeedEntry{position.cursor, position.at, author, ops}).text);
}

std::vector<std::string> Feed::forget(std::int64_t keep) {
    const auto oldest = head().seq - keep;
    database_.run("DELETE FROM entries WHERE brain = ? AND seq < ?", brain_, oldest);
    std::vector<std::string> hashes;
    auto dead =
        database_.query("DELETE FROM nodes WHERE brain = ? AND died IS NOT NULL AND died <= ? RETURNING hash",
                        brain_, oldest);
    while (dead.next()) {
        if (auto hash = dead.optionalText(0)) hashes.push_back(std::move(*hash));
    }
    return hashes;
}

std::vector<std::string> Feed::restart(platform::Random& random, Timestamp now) {
    // An entry without ops that no client ever sees: the position of the snapshot.
    insert(next(random, now), {});
    return forget(0);
}

void Feed::insert(const Position& position, const std::string& body) {
    database_.run("INSERT INTO entries (brain, seq, cursor, at, body) VALUES (?, ?, ?, ?, ?)", brain_,
                  position.seq, position.cursor, platform::formatTimestamp(position.at), body);
}

}  // namespace vorlinden::server
