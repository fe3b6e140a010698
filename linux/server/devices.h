// The devices that members have registered.
#pragma once

#include <string>
#include <vector>

#include "linux/server/storage.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::server::Devices {

// Refuses an empty or endless name or platform.
Device add(Storage& storage, const std::string& member, const std::string& name, const std::string& platform);
std::vector<Device> of(Database& database, const std::string& member);
// Refuses a device that this member hasn't registered.
void check(Database& database, const std::string& member, const std::string& id);
// Notes that the device asks, by the minute, so that a poll doesn't cost a flush each time.
void noteSeen(Storage& storage, const std::string& id);

}  // namespace vorlinden::server::Devices
