// SPDX-License-Identifier: Apache-2.0
#include "base/AsioRuntime.h"
#include "base/Lifetime.h"
#include "tests/support/VirtualRuntime.h"
#ifdef MERIDAL_DISPATCH
#include "tests/support/DispatchForTests.h"
#endif

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

/// What a test needs of a runtime beyond its interface: events that come from outside.
struct Harness {
    virtual ~Harness() = default;
    virtual Runtime& runtime() = 0;
    virtual void raise(int signal) = 0;
    /// Something was written to the other end.
    virtual void announceReadable(int) { }
};

struct RealHarness : Harness {
    void raise(int signal) override { std::raise(signal); }
};

struct AsioHarness final : RealHarness {
    Runtime& runtime() override { return asio; }
    AsioRuntime asio;
};

#ifdef MERIDAL_DISPATCH
struct DispatchHarness final : RealHarness {
    Runtime& runtime() override { return dispatch; }
    DispatchRuntime dispatch{makeGroundForTests()};
};
#endif

struct VirtualHarness final : Harness {
    Runtime& runtime() override { return clockwork; }
    void raise(int signal) override { clockwork.raise(signal); }
    void announceReadable(int descriptor) override { clockwork.makeReadable(descriptor); }
    VirtualRuntime clockwork;
};

struct Kind {
    std::string name;
    std::function<std::unique_ptr<Harness>()> make;
};

/// What every runtime promises. Tests wait for events, never for time: delays only order things.
class RuntimeConformance : public testing::TestWithParam<Kind> {
protected:
    static constexpr double tick = 0.002; // s

    /// Serves the main queue until a task calls stop().
    void serve() { runtime.run(); }
    Task stopper()
    {
        return [this] { runtime.stop(); };
    }
    /// A task that leaves a mark.
    Task adding(char mark)
    {
        return [this, mark] { order += mark; };
    }

    std::string order; ///< what ran
    std::unique_ptr<Harness> harness = GetParam().make();
    Runtime& runtime = harness->runtime();
    Queue& mainQueue = runtime.mainQueue();
};

std::vector<Kind> kinds()
{
    return {
#ifdef MERIDAL_DISPATCH
        {"Dispatch", [] { return std::make_unique<DispatchHarness>(); }},
#endif
        {"Asio", [] { return std::make_unique<AsioHarness>(); }},
        {"Virtual", [] { return std::make_unique<VirtualHarness>(); }},
    };
}

INSTANTIATE_TEST_SUITE_P(
    All, RuntimeConformance, testing::ValuesIn(kinds()), [](const auto& kind) { return kind.param.name; });

/// What those promise whose tasks have threads.
class ThreadedRuntimeConformance : public RuntimeConformance { };

std::vector<Kind> threadedKinds()
{
    std::vector<Kind> threaded = kinds();
    std::erase_if(threaded, [](const Kind& kind) { return kind.name == "Virtual"; });
    return threaded;
}

INSTANTIATE_TEST_SUITE_P(All, ThreadedRuntimeConformance, testing::ValuesIn(threadedKinds()),
    [](const auto& kind) { return kind.param.name; });

TEST_P(RuntimeConformance, SlowQueuesRunInOrderAndReportToMain)
{
    const auto slow = runtime.makeSlowQueue("slow");
    EXPECT_EQ(slow->label(), "slow");
    slow->runAndWait([&] {
        EXPECT_TRUE(slow->isCurrent());
        order += 'a';
    });
    slow->post([&] {
        order += 'b';
        slow->post([&] {
            order += 'c';
            mainQueue.post(stopper());
        });
    });
    serve();
    EXPECT_EQ(order, "abc");
}

TEST_P(ThreadedRuntimeConformance, ASlowQueueThatHangsHoldsUpNeitherOthersNorTheEnd)
{
    struct Hang {
        std::promise<void> reached;
        std::promise<void> release;
        std::promise<void> over;
    };
    const auto hang = std::make_shared<Hang>(); // what the task touches is its own
    {
        const auto stuck = runtime.makeSlowQueue("stuck");
        stuck->post([hang, &main = mainQueue] {
            hang->reached.set_value();
            hang->release.get_future().wait();
            main.post([] { FAIL() << "nobody is there any more"; });
            hang->over.set_value();
        });
        stuck->post([] { FAIL() << "it waited too long"; });
        hang->reached.get_future().wait();
        const auto other = runtime.makeSlowQueue("other");
        other->post(stopper());
        serve();
    }
    harness.reset();
    hang->release.set_value();
    hang->over.get_future().wait();
}

TEST_P(RuntimeConformance, MainTasksRunInTheOrderPostedAndNeverInsidePost)
{
    mainQueue.post([&] {
        mainQueue.post([&] {
            order += 'c';
            runtime.stop();
        });
        order += 'a';
    });
    mainQueue.post(adding('b'));
    EXPECT_EQ(order, "");
    serve();
    EXPECT_EQ(order, "abc");
}

TEST_P(RuntimeConformance, SerialQueuesRunOneTaskAtATimeInOrder)
{
    constexpr int tasks = 300;
    struct Lane {
        std::shared_ptr<Queue> queue;
        std::vector<int> order; // unguarded: the queue is the guard
    };
    std::array<Lane, 3> lanes;
    std::atomic<int> left = 3;
    for (auto& lane : lanes) {
        lane.queue = runtime.makeSerialQueue("lane");
        lane.order.reserve(tasks);
    }
    for (int i = 0; i < tasks; ++i) {
        for (auto& lane : lanes) {
            lane.queue->post([&lane, i] { lane.order.push_back(i); });
        }
    }
    for (auto& lane : lanes) {
        lane.queue->post([&] { --left == 0 ? runtime.stop() : void(); });
    }
    serve();
    for (const auto& lane : lanes) {
        ASSERT_EQ(lane.order.size(), tasks);
        EXPECT_TRUE(std::is_sorted(lane.order.begin(), lane.order.end()));
    }
}

TEST_P(RuntimeConformance, EachTaskKnowsItsQueue)
{
    const auto first = runtime.makeSerialQueue("first");
    const auto second = runtime.makeSerialQueue("second");
    EXPECT_EQ(first->label(), "first");
    EXPECT_FALSE(first->isCurrent());
    EXPECT_FALSE(mainQueue.isCurrent());
    std::string seen;
    const auto look = [&] {
        seen += mainQueue.isCurrent() ? 'm' : first->isCurrent() ? '1' : second->isCurrent() ? '2' : '-';
    };
    mainQueue.post([&] {
        look();
        first->runAndWait([&] {
            look();
            second->runAndWait(look);
            look();
        });
        look();
        first->post([&] {
            runtime.postGlobal([&] {
                look();
                runtime.stop();
            });
        });
    });
    serve();
    EXPECT_EQ(seen, "m121m-");
}

TEST_P(RuntimeConformance, WaitingRunsAfterWhatWasPostedBefore)
{
    const auto queue = runtime.makeSerialQueue("queue");
    queue->post(adding('a'));
    queue->post(adding('b'));
    queue->runAndWait(adding('c'));
    queue->post(adding('d'));
    queue->runAndWait(adding('e'));
    EXPECT_EQ(order, "abcde");

    runtime.postGlobal([&] {
        mainQueue.post(adding('f'));
        mainQueue.runAndWait(adding('g'));
        mainQueue.runAndWait(stopper());
    });
    serve();
    EXPECT_EQ(order, "abcdefg");
}

TEST_P(RuntimeConformance, ManyMayWaitForOneQueueWithoutLockingUp)
{
    constexpr int waiters = 16; // far more than the pool has threads
    const auto shared = runtime.makeSerialQueue("shared");
    std::vector<std::shared_ptr<Queue>> queues;
    int entered = 0; // guarded by the shared queue
    for (int i = 0; i < waiters; ++i) {
        queues.push_back(runtime.makeSerialQueue("waiter"));
        queues.back()->post([&] {
            shared->post([&] { ++entered; });
            shared->runAndWait([&] {
                if (++entered == 2 * waiters) {
                    runtime.stop();
                }
            });
        });
    }
    serve();
    shared->runAndWait([&] { EXPECT_EQ(entered, 2 * waiters); });
}

TEST_P(RuntimeConformance, TimerRepeatsUntilItDestroysItselfInItsTask)
{
    for (const auto& queue : {std::shared_ptr<Queue>(std::shared_ptr<Queue>(), &mainQueue), //
             runtime.makeSerialQueue("queue")}) {
        int fires = 0;
        std::unique_ptr<Timer> timer;
        queue->post([&] { // so that the task finds it in place
            timer = runtime.startTimer(*queue, {.first = tick, .interval = tick}, [&] {
                EXPECT_TRUE(queue->isCurrent());
                if (++fires == 3) {
                    timer.reset();
                    runtime.after(5 * tick, stopper());
                }
            });
        });
        serve();
        EXPECT_EQ(fires, 3);
    }
}

TEST_P(RuntimeConformance, TimersOfTheGridFireTogetherWheneverTheyStarted)
{
    constexpr double interval = 1.0 / 32; // s, whose multiples are exact
    std::string round;                    // what fired of late, in any order
    std::vector<std::unique_ptr<Timer>> timers;
    int rounds = 0;
    const auto fire = [&](char mark) {
        if (round.empty()) {
            runtime.after(interval / 4, [&] {
                std::sort(round.begin(), round.end());
                order += std::exchange(round, "") + ' ';
                ++rounds == 6 ? runtime.stop() : void();
            });
        }
        round += mark;
    };
    const auto start = [&](char mark) {
        timers.push_back(runtime.startTimer(
            mainQueue, {.first = interval, .interval = interval, .onGrid = true}, [&, mark] { fire(mark); }));
    };
    start('a');
    runtime.after(0.4 * interval, [&] { start('b'); });
    runtime.after(1.7 * interval, [&] { start('c'); });
    serve();
    EXPECT_TRUE(order.ends_with("abc abc abc ")) << order;
}

TEST_P(RuntimeConformance, TimerWithoutIntervalFiresOnce)
{
    const auto timer = runtime.startTimer(mainQueue, {.first = tick}, adding('a'));
    runtime.after(5 * tick, stopper());
    serve();
    EXPECT_EQ(order, "a");
}

TEST_P(RuntimeConformance, TimerDestroyedByAnEarlierTaskOfItsQueueDoesNotRun)
{
    std::unique_ptr<Timer> victim;
    const auto killer = runtime.startTimer(mainQueue, {.first = tick, .leeway = 3 * tick}, [&] { victim.reset(); });
    victim = runtime.startTimer(mainQueue, {.first = tick, .leeway = 3 * tick}, adding('a'));
    runtime.after(8 * tick, stopper());
    serve();
    EXPECT_EQ(order, "");
}

TEST_P(RuntimeConformance, TimersOfASerialQueueMayDieAtAnyMoment)
{
    struct Owner {
        int fires = 0; // guarded by the queue
        std::unique_ptr<Timer> timer;
    };
    const auto queue = runtime.makeSerialQueue("queue");
    int left = 200;
    std::function<void()> round = [&] {
        auto owner = std::make_shared<Owner>();
        queue->post([&, owner] {
            owner->timer =
                runtime.startTimer(*queue, {.first = 0, .interval = 1e-5}, [raw = owner.get()] { ++raw->fires; });
        });
        runtime.after(1e-4, [&, owner] {
            // On its own queue: from here on the task must not touch its owner.
            queue->runAndWait([&] { owner->timer.reset(); });
            --left > 0 ? round() : runtime.stop();
        });
    };
    mainQueue.post(round);
    serve();
    EXPECT_EQ(left, 0);
}

TEST_P(RuntimeConformance, TimerLetsGoOfItsTaskWhenDestroyedOnItsQueue)
{
    const auto held = std::make_shared<int>();
    auto timer = runtime.startTimer(mainQueue, {.first = 1000}, [held] {});
    EXPECT_EQ(held.use_count(), 2);
    timer.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_P(RuntimeConformance, DelayedTasksRunOnTheMainQueueByTheirMoment)
{
    mainQueue.post(adding('a'));
    runtime.after(6 * tick, [&] {
        order += 'd';
        runtime.stop();
    });
    runtime.after(3 * tick, adding('c'));
    runtime.after(0, [&] {
        EXPECT_TRUE(mainQueue.isCurrent());
        order += 'b';
    });
    EXPECT_EQ(order, "");
    serve();
    EXPECT_EQ(order, "abcd");
}

TEST_P(RuntimeConformance, GuardedTasksDieWithTheirObject)
{
    auto lifetime = std::make_unique<Lifetime>();
    mainQueue.post(lifetime->guard(adding('a')));
    mainQueue.post([&] { lifetime.reset(); });
    mainQueue.post(lifetime->guard(adding('b')));
    runtime.after(tick, lifetime->guard(adding('c')));
    runtime.after(3 * tick, stopper());
    serve();
    EXPECT_EQ(order, "a");
}

TEST_P(RuntimeConformance, SignalsArriveOnTheMainQueue)
{
    int first = 0;
    int second = 0;
    std::unique_ptr<Watch> watch = runtime.watchSignal(SIGUSR1, [&] {
        EXPECT_TRUE(mainQueue.isCurrent());
        if (++first == 2) {
            watch.reset();
            harness->raise(SIGUSR1); // for the other watch only
        } else {
            harness->raise(SIGUSR1);
        }
    });
    const auto other = runtime.watchSignal(SIGUSR1, [&] {
        if (++second == 3) {
            runtime.stop();
        }
    });
    harness->raise(SIGUSR1);
    serve();
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 3);
}

TEST_P(RuntimeConformance, ReadableDescriptorIsReportedUntilItIsEmptyAndStaysOpen)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const auto send = [&](const std::string& bytes) {
        EXPECT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            harness->announceReadable(ends[0]);
        }
    };
    std::string got;
    std::unique_ptr<Watch> watch = runtime.watchReadable(ends[0], [&] {
        EXPECT_TRUE(mainQueue.isCurrent());
        char byte = 0;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1); // less than there is: the rest is reported again
        got += byte;
        if (got == "abc") {
            mainQueue.post([&] { send("de"); });
        } else if (got == "abcd") {
            watch.reset();
            runtime.after(2 * tick, stopper());
        }
    });
    mainQueue.post([&] { send("abc"); });
    serve();
    EXPECT_EQ(got, "abcd");
    char rest = 0;
    EXPECT_EQ(::read(ends[0], &rest, 1), 1) << "the descriptor is still the caller's";
    EXPECT_EQ(rest, 'e');
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_P(RuntimeConformance, StopEndsTheRunAfterTheTaskInProgress)
{
    mainQueue.post([&] {
        runtime.stop();
        order += 'a';
    });
    mainQueue.post([&] {
        order += 'b';
        runtime.stop();
    });
    serve();
    EXPECT_EQ(order, "a");
    serve();
    EXPECT_EQ(order, "ab");

    runtime.postGlobal(stopper());
    serve();
    runtime.stop(); // comes before the run it is meant for
    mainQueue.post(adding('c'));
    serve();
    EXPECT_EQ(order, "ab");
}

TEST_P(RuntimeConformance, WhatComesWhileTheRunEndsWaitsForTheNext)
{
    const auto serveTwice = [&] {
        for (int run = 0; run < 2; ++run) {
            const std::size_t before = order.size();
            serve();
            EXPECT_EQ(order.size(), before + 1) << "one a run";
        }
    };
    const Task ending = [&] {
        order += 'a';
        runtime.stop();
    };
    // Both of a kind come in one turn of the loop, if not in one wake-up.
    runtime.after(0, ending);
    runtime.after(0, ending);
    serveTwice();
    const TimerSchedule soon{.first = tick, .leeway = 3 * tick};
    const auto first = runtime.startTimer(mainQueue, soon, ending);
    const auto second = runtime.startTimer(mainQueue, soon, ending);
    serveTwice();
}

TEST_P(RuntimeConformance, WhatARunLeftIsNotOvertakenInTheNext)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    for (int round = 0; round < 50; ++round) { // what comes from outside may be there before the next run or not
        order.clear();
        std::unique_ptr<Timer> timer;
        const auto watch = runtime.watchReadable(ends[0], [&] {
            char byte = 0;
            EXPECT_EQ(::read(ends[0], &byte, 1), 1);
            order += 'r';
            order.size() == 4 ? runtime.stop() : void();
        });
        mainQueue.post([&] {
            timer = runtime.startTimer(mainQueue, {.first = 0}, [&] {
                order += 't';
                order.size() == 4 ? runtime.stop() : void();
            });
            EXPECT_EQ(::write(ends[1], "x", 1), 1);
            runtime.stop();
        });
        mainQueue.post(adding('a'));
        mainQueue.post(adding('b'));
        serve();
        EXPECT_EQ(order, "");
        mainQueue.post([&] { harness->announceReadable(ends[0]); });
        serve();
        EXPECT_TRUE(order == "abtr" || order == "abrt") << order;
    }
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_P(RuntimeConformance, ADescriptorMayBeClosedAndItsNumberUsedAgainOnceItsWatchIsGone)
{
    const auto open = [](int like) {
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe(ends.data()), 0);
        EXPECT_TRUE(like < 0 || ends[0] == like) << "the test wants the lowest free number";
        return ends;
    };
    std::array<int, 2> ends = open(-1);
    for (int round = 0; round < 20; ++round) {
        std::unique_ptr<Watch> watch = runtime.watchReadable(ends[0], [&] {
            order += 'a';
            watch.reset();
            runtime.stop();
        });
        mainQueue.post([&] {
            EXPECT_EQ(::write(ends[1], "x", 1), 1);
            harness->announceReadable(ends[0]);
        });
        serve();
        ::close(ends[0]);
        ::close(ends[1]);
        ends = open(ends[0]);
    }
    EXPECT_EQ(order, std::string(20, 'a'));
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_P(RuntimeConformance, TasksThatNeverRanLetGoWithTheRuntime)
{
    const auto held = std::make_shared<int>();
    const auto queue = runtime.makeSerialQueue("queue");
    std::unique_ptr<Timer> timer = runtime.startTimer(*queue, {.first = 1000}, [held, queue] {});
    std::unique_ptr<Watch> watch = runtime.watchSignal(SIGUSR2, [held] {});
    mainQueue.post([held, queue] {});
    runtime.after(1000, [held, queue] {});
    harness.reset();
    timer.reset(); // both may outlive the runtime
    watch.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_P(RuntimeConformance, TheEndLetsGoThoseWhoWaitForTheMainQueueAndDropsWhatIsBehindThem)
{
    const auto held = std::make_shared<int>();
    const auto queue = runtime.makeSerialQueue("queue");
    for (int i = 0; i < 3; ++i) {
        queue->post([held, &main = mainQueue] { main.runAndWait([held] {}); });
        runtime.postGlobal([held, queue] { queue->runAndWait([] {}); });
    }
    harness.reset(); // while they wait, or before
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace
} // namespace meridal
