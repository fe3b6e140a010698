#include "fileprovider/turnstile.h"

#include <utility>

namespace vorlinden::fileprovider {

Turnstile::Ticket::Ticket(std::shared_ptr<Turnstile> turnstile) : turnstile_(std::move(turnstile)) {
    std::lock_guard hold(turnstile_->mutex_);
    place_ = turnstile_->queue_.insert(turnstile_->queue_.end(), this);
    if (turnstile_->queue_.front() == this) turn_.set();
}

Turnstile::Ticket::~Ticket() {
    std::lock_guard hold(turnstile_->mutex_);
    auto& queue = turnstile_->queue_;
    const bool hadTurn = queue.front() == this;
    queue.erase(place_);
    if (hadTurn && !queue.empty()) queue.front()->turn_.set();
}

}  // namespace vorlinden::fileprovider
