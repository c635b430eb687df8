// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <future>
#include <memory>
#include <utility>

namespace meridal {

/// Waits until a queue that forgets what it cannot serve any more has run the task, or dropped it. Not from the queue itself.
inline void postAndWait(Queue& queue, const Task& task)
{
    // A task that is dropped breaks the promise, which ends the wait as well.
    auto promise = std::make_shared<std::promise<void>>();
    const auto done = promise->get_future();
    queue.post([promise = std::move(promise), &task] {
        task();
        promise->set_value();
    });
    done.wait();
}

} // namespace meridal
