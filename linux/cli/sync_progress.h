// What `vorlinden sync` tells the person at the terminal.
#pragma once

#include <chrono>
#include <exception>
#include <map>
#include <string>

#include "linux/host/sync_loop.h"

namespace vorlinden::cli {

// Lines on standard error. On a terminal the brain at work shows in a line that goes again; a round that
// brought nothing says nothing, and a failure is told once until it changes.
class SyncProgress : public host::SyncObserver {
 public:
    explicit SyncProgress(std::string server);

    void willSync(const BrainRecord& brain) override;
    void didSync(const host::BrainReport& report) override;
    void didHear(const host::ToldEvent& event) override;
    void willRetry(const std::exception_ptr& failure, std::chrono::milliseconds pause) override;
    void willRest(const std::vector<host::BrainReport>& reports) override;
    void isSignedOut(const std::exception_ptr& failure) override;

 private:
    void tell(const std::string& line);
    void showWork(const std::string& text);

    const std::string server_;
    const bool onTerminal_;
    bool restedBefore_ = false;
    std::map<UUID, std::string> troubles_;  // the last one told, by brain
    std::string roundFailure_;
};

}  // namespace vorlinden::cli
