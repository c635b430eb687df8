// SPDX-License-Identifier: Apache-2.0
// The part of StatCollector that deals in time: the one-second clock.

#include "collectors/StatCollector.h"
#include "platform/Context.h"

#include <cmath>

namespace meridal {

namespace {

constexpr double turn = 1.0; ///< s between turns of the clock

/// A first turn closer than this would come before start-up has settled.
constexpr double shortestFirstWait = 0.1;

/// A turn that would wait longer than this means that the wall clock has stepped back.
constexpr double longestWait = 2.0;

} // namespace

void StatCollector::startLogging()
{
    clock_.end(); // a clock that runs already gives way to this one
    const double now = context_.runtime.wallTime();
    sampleIndex_.nextTime = std::ceil(now);
    if (sampleIndex_.nextTime - now < shortestFirstWait) {
        sampleIndex_.nextTime += turn;
    }
    updateSequence_ = 0;
    scheduleTurn(sampleIndex_.nextTime - now);
}

void StatCollector::scheduleTurn(double seconds)
{
    context_.runtime.after(seconds, clock_.guard([this] { updateSamplesAndLogging(); }));
}

void StatCollector::updateSamplesAndLogging()
{
    if (stopped_) {
        return;
    }
    if (measuring_) {
        advanceClock(); // started over while the turn of before is still measuring: let this one pass
        return;
    }
    sampleIndex_.time = sampleIndex_.nextTime;
    // Bound to this run of the clock: the measurement may start the clock over, end it or destroy the collector.
    Task finish = clock_.guard([this] { finishTurn(); });
    if (!shouldUpdateStateForSequence(updateSequence_)) {
        finish();
        return;
    }
    sampleIndex_.sampleID += 1;
    auto self = threadedUpdating() ? weak_from_this().lock() : nullptr;
    if (self) {
        measureOnGlobalQueue(std::move(self), std::move(finish));
    } else {
        updateStatsForSequence(updateSequence_);
        finish();
    }
}

void StatCollector::measureOnGlobalQueue(std::shared_ptr<StatCollector> self, Task finish)
{
    measuring_ = true;
    context_.runtime.postGlobal(
        [self = std::move(self), finish = std::move(finish), sequence = updateSequence_]() mutable {
            self->updateStatsForSequence(sequence);
            Queue& mainQueue = self->context_.runtime.mainQueue();
            // The main queue takes over this reference, so that the collector is never destroyed on the global queue.
            mainQueue.post([self = std::move(self), finish = std::move(finish)] {
                self->measuring_ = false;
                if (self->cleanedUp_) {
                    self->queue_.reset();
                }
                finish();
            });
        });
}

void StatCollector::finishTurn()
{
    if (!stopped_) {
        if (automaticSampleUpdates_) {
            updateHistory();
        }
        advanceClock();
    }
}

void StatCollector::advanceClock()
{
    const double now = context_.runtime.wallTime();
    ++updateSequence_;
    sampleIndex_.nextTime += turn;
    const double wait = sampleIndex_.nextTime - now;
    if (wait < 0 || wait > longestWait) {
        sampleIndex_.nextTime =
            std::ceil(now) + turn; // overload, sleep, or a clock that stepped: missed turns are not made up for
    }
    scheduleTurn(sampleIndex_.nextTime - now);
}

} // namespace meridal
