// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/LongRequests.h"

#include <utility>

namespace meridal {

void LongRequests::enter(Start start)
{
    Turn turn; // here and below: whoever lets go of the last one must not hold the lock
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return;
    }
    if (inService_ >= mostAtOnce) {
        waiting_.push_back(std::move(start));
        return;
    }
    ++inService_;
    turn = makeTurn();
    start(turn);
}

void LongRequests::close()
{
    std::deque<Start> dropped; // outside the lock
    const std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(waiting_);
}

LongRequests::Turn LongRequests::makeTurn()
{
    return {static_cast<const void*>(this), [self = shared_from_this()](const void*) { self->leave(); }};
}

void LongRequests::leave()
{
    Start next;
    Turn turn;
    const std::lock_guard lock(mutex_);
    --inService_;
    if (!waiting_.empty()) {
        next = std::move(waiting_.front());
        waiting_.pop_front();
        ++inService_;
        turn = makeTurn();
        next(turn);
    }
}

} // namespace meridal
