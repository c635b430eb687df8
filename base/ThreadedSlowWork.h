// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"

#include <cstddef>
#include <memory>

namespace meridal {

/// SlowWork on threads of its own: one as a rule, started with the first task, and another one for each that hangs. They
/// are not the runtime's pool, in which two tasks that hang would hold up every database.
class ThreadedSlowWork final : public SlowWork {
public:
    explicit ThreadedSlowWork(std::size_t mostThreads = 16);
    /// Drops the tasks that wait, and does not wait for those in progress.
    ~ThreadedSlowWork() override;

    void post(Task task) override;
    bool wait(const std::function<bool()>& condition, double seconds) override;

private:
    struct State;
    std::shared_ptr<State> state_; ///< shared with the threads, which may never come back
};

} // namespace meridal
