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

TEST(AsioRuntime, ASlowQueueThatHangsHoldsUpNeitherOthersNorTheEnd)
{
    struct Hang {
        std::promise<void> reached;
        std::promise<void> release;
        std::promise<void> over;
    };
    const auto hang = std::make_shared<Hang>(); // what the task touches is its own
    {
        AsioRuntime runtime;
        const auto stuck = runtime.makeSlowQueue("stuck");
        stuck->post([hang, &main = runtime.mainQueue()] {
            hang->reached.set_value();
            hang->release.get_future().wait();
            main.post([] { FAIL() << "nobody is there any more"; });
            hang->over.set_value();
        });
        stuck->post([] { FAIL() << "it waited too long"; });
        hang->reached.get_future().wait();
        const auto other = runtime.makeSlowQueue("other");
        other->post([&] { runtime.stop(); });
        runtime.run();
    }
    hang->release.set_value();
    hang->over.get_future().wait();
}

} // namespace
} // namespace meridal
