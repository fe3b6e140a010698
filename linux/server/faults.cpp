#include "linux/server/faults.h"

namespace vorlinden::server {

namespace {

bool matches(const Fault& fault, const RequestHead& head) {
    return (fault.method.empty() || fault.method == head.method) &&
           head.target.find(fault.targetContains) != std::string::npos;
}

}  // namespace

void FaultPlan::add(Fault fault) {
    const std::lock_guard guard(mutex_);
    if (fault.times > 0) faults_.push_back(std::move(fault));
}

void FaultPlan::clear() {
    const std::lock_guard guard(mutex_);
    faults_.clear();
}

std::optional<Fault> FaultPlan::take(const RequestHead& head) {
    const std::lock_guard guard(mutex_);
    ++seen_;
    for (auto fault = faults_.begin(); fault != faults_.end(); ++fault) {
        if (!matches(*fault, head)) continue;
        if (fault->skip > 0) {
            --fault->skip;
            continue;
        }
        auto hit = *fault;
        if (--fault->times == 0) faults_.erase(fault);
        return hit;
    }
    return std::nullopt;
}

std::int64_t FaultPlan::requestsSeen() const {
    const std::lock_guard guard(mutex_);
    return seen_;
}

}  // namespace vorlinden::server
