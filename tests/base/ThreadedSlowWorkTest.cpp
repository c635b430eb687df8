// SPDX-License-Identifier: Apache-2.0
#include "base/ThreadedSlowWork.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>

namespace meridal {
namespace {

constexpr double longEnough = 30.0; // s; ends at once when all is well

TEST(ThreadedSlowWork, TasksThatHangHoldUpNoOther)
{
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    auto back = std::make_shared<std::atomic<int>>(0);
    auto done = std::make_shared<std::atomic<int>>(0);
    {
        ThreadedSlowWork work(4);
        for (int i = 0; i < 3; ++i) {
            work.post([released, back] {
                released.wait();
                ++*back;
            });
        }
        work.post([done] { ++*done; });
        EXPECT_FALSE(work.wait([back] { return *back > 0; }, 0.05));
        EXPECT_TRUE(work.wait([done] { return *done == 1; }, longEnough));
        work.post([done] { ++*done; }); // there is a thread for it from the start
        EXPECT_TRUE(work.wait([done] { return *done == 2; }, longEnough));
    } // does not wait for those that hang
    release.set_value();
    while (*back < 3) { }
}

} // namespace
} // namespace meridal
