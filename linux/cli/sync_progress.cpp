#include "linux/cli/sync_progress.h"

#include <iostream>
#include <utility>
#include <vector>

#include <unistd.h>

#include "linux/host/explain.h"

namespace vorlinden::cli {
namespace {

std::string counted(std::size_t count, const std::string& one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

// What was done for a brain, in one line; empty if nothing was.
std::string outcomeText(const host::BrainReport& report) {
    const auto& [brain, pull, drain, failure] = report;
    std::vector<std::string> parts;
    if (pull.snapshot) parts.push_back("all of it fetched anew, " + counted(*pull.snapshot, "item"));
    if (pull.entries > 0) parts.push_back(counted(pull.entries, "change"));
    if (drain.sent > 0) parts.push_back(std::to_string(drain.sent) + " sent");
    if (drain.bounced > 0) parts.push_back(std::to_string(drain.bounced) + " without write access");
    if (drain.refused > 0)
        parts.push_back(std::to_string(drain.refused) + " refused (see `vorlinden status`)");
    std::string text;
    for (const auto& part : parts)
        text += (text.empty() ? brain.slug + ": " : ", ") + part;
    return text;
}

// What keeps a brain from being in step; empty if nothing does.
std::string troubleText(const host::BrainReport& report) {
    if (report.failure) return report.brain.slug + ": " + host::explain(report.failure).sentence;
    if (report.drain.waiting == 0) return "";
    const auto text = report.brain.slug + ": " + counted(report.drain.waiting, "change") + " still waiting.";
    return report.drain.reason ? text + " " + *report.drain.reason : text;
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

void SyncProgress::willSync(const BrainRecord& brain) {
    showWork(brain.slug + ": asking " + server_ + " ...");
}

void SyncProgress::didSync(const host::BrainReport& report) {
    showWork("");
    if (const auto& refusal = report.pull.refusal) {
        tell(report.brain.slug + ": a change could not be applied, so all of it was fetched anew. " +
             *refusal);
    }
    if (const auto outcome = outcomeText(report); !outcome.empty()) tell(outcome);
    if (!report.drain.tried && !report.failure) return;  // what waits was told when it was tried
    const auto trouble = troubleText(report);
    auto& told = troubles_[report.brain.brainId];
    if (!trouble.empty() && trouble != told) tell(trouble);
    told = trouble;
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
