// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"

#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace meridal::test {

/// Runs what is posted while it is waited for, but for the tasks that a test lets hang.
class HandWork final : public SlowWork {
public:
    struct Script {
        int hang = -1; ///< how many of the next tasks run before one hangs; -1: none does
        int waits = 0;
        int posts = 0;
        std::vector<Task> hanging;
    };
    explicit HandWork(std::shared_ptr<Script> script) : script_(std::move(script)) { }
    void post(Task task) override
    {
        ++script_->posts;
        if (script_->hang >= 0 && script_->hang-- == 0) {
            script_->hanging.push_back(std::move(task));
        } else {
            waiting_.push_back(std::move(task));
        }
    }
    bool wait(const std::function<bool()>& condition, double) override
    {
        ++script_->waits;
        while (!condition()) {
            if (waiting_.empty()) {
                return false;
            }
            const Task task = std::move(waiting_.front());
            waiting_.pop_front();
            task();
        }
        return true;
    }

private:
    std::shared_ptr<Script> script_;
    std::deque<Task> waiting_;
};

} // namespace meridal::test
