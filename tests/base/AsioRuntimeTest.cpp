// SPDX-License-Identifier: Apache-2.0
#include "base/AsioRuntime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <optional>
#include <thread>

namespace meridal {
namespace {

/// Threads of this process; absent where the system does not list them as files.
std::optional<std::ptrdiff_t> threadCount()
{
    std::error_code error;
    const std::filesystem::directory_iterator tasks("/proc/self/task", error);
    return error ? std::nullopt : std::optional(std::distance(begin(tasks), end(tasks)));
}

TEST(AsioRuntime, IdleRuntimeHasNoThreadsOfItsOwn)
{
    std::thread([] {}).join(); // a sanitizer starts a thread of its own with the program's first
    const auto before = threadCount();
    if (!before) {
        GTEST_SKIP() << "threads are not listed here";
    }
    AsioRuntime runtime;
    const auto queue = runtime.makeSerialQueue("idle");
    const auto timer =
        runtime.startTimer(runtime.mainQueue(), {.first = 0.001, .interval = 0.001}, [&] { runtime.stop(); });
    runtime.run();
    queue->runAndWait([] {}); // lends the queue the caller's own thread
    EXPECT_EQ(threadCount(), before);
    runtime.postGlobal([&] { runtime.stop(); });
    runtime.run();
    EXPECT_EQ(threadCount(), *before + 3);
}

TEST(AsioRuntime, ShutsDownWhileThePoolWaitsForTheMainQueue)
{
    std::atomic<bool> ran = false;
    std::promise<void> waiting;
    {
        AsioRuntime runtime;
        runtime.postGlobal([&] {
            waiting.set_value();
            runtime.mainQueue().runAndWait([&] { ran = true; });
        });
        waiting.get_future().wait();
    }
    EXPECT_FALSE(ran);
}

TEST(AsioRuntime, AnyThreadMayPostAndStartTimers)
{
    AsioRuntime runtime;
    std::atomic<int> left = 3 * 50 * 2;
    const auto count = [&] {
        if (--left == 0) {
            runtime.stop();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 50; ++k) {
                runtime.mainQueue().post(count);
                runtime.after(1e-4 * (50 - k), count);
            }
        });
    }
    runtime.run();
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(left, 0);
}

TEST(AsioRuntime, FiresThatABusyQueueMissesAreOne)
{
    AsioRuntime runtime;
    const auto queue = runtime.makeSerialQueue("busy");
    std::promise<void> release;
    queue->post([&] { release.get_future().wait(); });
    int fires = 0;
    const auto late = runtime.startTimer(*queue, {.first = 0.001, .interval = 0.001}, [&] { ++fires; });
    int turns = 0;
    const auto other = runtime.startTimer(runtime.mainQueue(), {.first = 0.001, .interval = 0.001}, [&] {
        if (++turns == 20) {
            queue->post([&] {
                EXPECT_EQ(fires, 1);
                runtime.stop();
            });
            release.set_value();
        }
    });
    runtime.run();
}

TEST(AsioRuntime, QueuesThatAreNeverEmptyLeaveThePoolToOthers)
{
    std::atomic<bool> over = false;
    std::function<void(Queue&)> again = [&](Queue& queue) {
        if (!over) {
            queue.post([&] { again(queue); });
        }
    };
    AsioRuntime runtime;
    std::vector<std::shared_ptr<Queue>> greedy;
    for (int i = 0; i < 8; ++i) { // more than the pool has threads
        greedy.push_back(runtime.makeSerialQueue("greedy"));
        again(*greedy.back());
    }
    const auto end = [&] {
        over = true;
        runtime.stop();
    };
    runtime.after(10, [&] {
        ADD_FAILURE() << "its turn never came";
        end();
    });
    const auto modest = runtime.makeSerialQueue("modest");
    modest->post(end);
    runtime.run();
}

} // namespace
} // namespace meridal
