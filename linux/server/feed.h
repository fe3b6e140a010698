// A brain's feed: what happened, in order, and the cursors by which clients know how far they have read.
//
// A value for the length of one transaction.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/server/database.h"
#include "platform/seams.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::server {

class Feed {
 public:
    // An entry's number, the cursor under which clients know it, and when it was made.
    struct Position {
        std::int64_t seq = 0;
        std::string cursor;
        Timestamp at{};
    };

    Feed(Database& database, std::int64_t brain) : database_(database), brain_(brain) {}

    Position head() const;
    // The number of the entry of that cursor; absent if there never was one, or it has been forgotten.
    std::optional<std::int64_t> find(const std::string& cursor) const;
    // The entries after that one, as their JSON.
    std::vector<std::string> entriesAfter(std::int64_t seq) const;

    // When and under which number the next entry goes: later than every other by a millisecond at least,
    // whatever the clock says, so that an `at` tells two changes of a file apart.
    Position next(platform::Random& random, Timestamp now) const;
    void append(const Position& position, const Author& author, const std::vector<Op>& ops);

    // Forgets all but the last `keep` entries. Gives the digests of contents that only forgotten trees had.
    std::vector<std::string> forget(std::int64_t keep);
    // Forgets every cursor that was ever handed out: who asks next is given a snapshot.
    std::vector<std::string> restart(platform::Random& random, Timestamp now);

 private:
    void insert(const Position& position, const std::string& body);

    Database& database_;
    std::int64_t brain_;
};

}  // namespace vorlinden::server
