#include "linux/cli/sync_progress.h"

#include <iostream>
#include <utility>

#include <unistd.h>

#include "linux/host/explain.h"

namespace vorlinden::cli {
namespace {

std::string outcomeText(const host::BrainReport& report) {
    std::string text = report.brain.slug + ": ";
    if (report.pull.snapshot)
        return text + "all of it fetched anew, " + std::to_string(*report.pull.snapshot) + " items";
    return text + std::to_string(report.pull.entries) + (report.pull.entries == 1 ? " change" : " changes");
}

}  // namespace

SyncProgress::SyncProgress(std::string server)
    : server_(std::move(server)), onTerminal_(::isatty(STDERR_FILENO)) {}

void SyncProgress::tell(const std::string& line) {
    std::cerr << (onTerminal_ ? "\r\033[K" : "") << line << std::endl;
}

void SyncProgress::showWork(const std::string& text) {
    if (onTerminal_) std::cerr << "\r\033[K" << text << std::flush;
}

void SyncProgress::willPull(const BrainRecord& brain) {
    showWork(brain.slug + ": asking " + server_ + " ...");
}

void SyncProgress::didPull(const host::BrainReport& report) {
    showWork("");
    if (report.pull.snapshot || report.pull.entries > 0) tell(outcomeText(report));
    const auto failure = report.failure ? host::explain(report.failure).sentence : std::string();
    auto& told = failures_[report.brain.brainId];
    if (!failure.empty() && failure != told) tell(report.brain.slug + ": " + failure);
    told = failure;
}

void SyncProgress::didHear(const host::ToldEvent& event) {
    tell(event.line());
}

void SyncProgress::willRetry(const std::exception_ptr& failure, std::chrono::milliseconds pause) {
    const auto sentence = host::explain(failure).sentence;
    if (std::exchange(roundFailure_, sentence) == sentence) return;
    const auto seconds = std::chrono::round<std::chrono::seconds>(pause).count();
    tell(sentence + " Trying again, first in " + std::to_string(seconds) + " s.");
}

void SyncProgress::willRest(const std::vector<host::BrainReport>& reports) {
    if (!roundFailure_.empty()) tell("The server answers again.");
    roundFailure_.clear();
    if (!std::exchange(restedBefore_, true)) {
        tell("In step with " + server_ + " (" + std::to_string(reports.size()) +
             (reports.size() == 1 ? " brain)." : " brains)."));
    }
}

void SyncProgress::isSignedOut(const std::exception_ptr& failure) {
    tell(host::explain(failure).sentence + " Waiting for that.");
}

}  // namespace vorlinden::cli
