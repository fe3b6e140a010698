// A local sync server: OAuth, brains, feeds, snapshots and contents over HTTP on this machine, with its state
// in one folder that stays whole whenever the process is killed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "linux/server/administrator.h"
#include "linux/server/faults.h"
#include "linux/server/importer.h"
#include "linux/server/options.h"
#include "platform/seams.h"

namespace vorlinden::server {

class SyncServer {
 public:
    // Opens the state, does the imports, listens and serves. Throws a Failure that says what is in the way.
    explicit SyncServer(ServerOptions options,
                        std::shared_ptr<platform::Clock> clock = platform::systemClock(),
                        std::shared_ptr<platform::Random> random = platform::systemRandom());
    ~SyncServer();  // stops

    std::string url() const;  // "http://127.0.0.1:PORT"
    const std::vector<ImportReport>& imports() const;
    const Administrator& administrator() const;  // thread-safe, as is the next
    FaultPlan& faults();

    // Within about a second: idle connections end at once, requests at work are waited for.
    void stop();

 private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace vorlinden::server
