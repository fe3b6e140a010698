#include "linux/server/devices.h"

#include "linux/server/refusal.h"
#include "platform/timestamp.h"
#include "platform/uuid.h"

namespace vorlinden::server::Devices {

namespace {

constexpr std::size_t longestName = 1024;
constexpr std::chrono::minutes seenPrecision{1};

void checkName(const std::string& text) {
    if (text.empty() || text.size() > longestName) {
        throw Refusal::badRequest("A device needs a name and a platform of up to 1024 bytes each.");
    }
}

}  // namespace

Device add(Storage& storage, const std::string& member, const std::string& name,
           const std::string& platform) {
    checkName(name);
    checkName(platform);
    const Device device{platform::UUID::random(storage.random()).lowerText(), name, platform,
                        storage.clock().now(), std::nullopt};
    WriteTransaction transaction(storage);
    transaction.database().run(
        "INSERT INTO devices (id, member, name, platform, created_at) VALUES (?, ?, ?, ?, ?)", device.id,
        member, name, platform, platform::formatTimestamp(device.createdAt));
    transaction.commit();
    return device;
}

std::vector<Device> of(Database& database, const std::string& member) {
    std::vector<Device> devices;
    auto query = database.query(
        "SELECT id, name, platform, created_at, last_seen_at FROM devices WHERE member = ? ORDER BY "
        "created_at, id",
        member);
    while (query.next()) {
        const auto seen = query.optionalText(4);
        devices.push_back({query.text(0), query.text(1), query.text(2),
                           platform::parseTimestamp(query.text(3)).value_or(Timestamp{}),
                           seen ? platform::parseTimestamp(*seen) : std::nullopt});
    }
    return devices;
}

void check(Database& database, const std::string& member, const std::string& id) {
    auto query = database.query("SELECT 1 FROM devices WHERE id = ? AND member = ?", id, member);
    if (!query.next()) throw Refusal::unknownDevice();
}

void noteSeen(Storage& storage, const std::string& id) {
    const auto now = storage.clock().now();
    const auto due = platform::formatTimestamp(now - seenPrecision);
    {
        ReadTransaction transaction(storage);
        auto query = transaction.database().query(
            "SELECT 1 FROM devices WHERE id = ? AND (last_seen_at IS NULL OR last_seen_at < ?)", id, due);
        if (!query.next()) return;
    }
    WriteTransaction transaction(storage);
    transaction.database().run("UPDATE devices SET last_seen_at = ? WHERE id = ?",
                               platform::formatTimestamp(now), id);
    transaction.commit();
}

}  // namespace vorlinden::server::Devices
