#include "linux/mount/interrupts.h"

#include "linux/mount/fuse_operations.h"

namespace vorlinden::mount {

std::uint64_t Interrupts::watch(fuse_req_t request) {
    std::uint64_t number = 0;
    {
        std::lock_guard hold(mutex_);
        number = ++last_;
        requests_.emplace(number, Request{});
    }
    // libfuse calls back at once when the interrupt is here already.
    fuse_req_interrupt_func(request, &Interrupts::interrupted, reinterpret_cast<void*>(number));
    return number;
}

void Interrupts::waitsFor(std::uint64_t number, std::shared_ptr<ContentStore::Wait> wait) {
    {
        std::lock_guard hold(mutex_);
        const auto found = requests_.find(number);
        if (found == requests_.end()) return;
        if (!found->second.interrupted) {
            found->second.wait = std::move(wait);
            return;
        }
    }
    if (wait) wait->cancel();
}

void Interrupts::done(std::uint64_t number) {
    std::shared_ptr<ContentStore::Wait> wait;  // dropped outside the lock
    std::lock_guard hold(mutex_);
    const auto found = requests_.find(number);
    if (found == requests_.end()) return;
    wait = std::move(found->second.wait);
    requests_.erase(found);
}

void Interrupts::interrupt(std::uint64_t number) {
    std::shared_ptr<ContentStore::Wait> wait;
    {
        std::lock_guard hold(mutex_);
        const auto found = requests_.find(number);
        if (found == requests_.end()) return;
        found->second.interrupted = true;
        wait = found->second.wait;
    }
    if (wait) wait->cancel();
}

void Interrupts::interrupted(fuse_req_t request, void* number) {
    auto& operations = *static_cast<FuseOperations*>(fuse_req_userdata(request));
    operations.interrupts().interrupt(reinterpret_cast<std::uint64_t>(number));
}

}  // namespace vorlinden::mount
