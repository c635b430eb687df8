// SPDX-License-Identifier: Apache-2.0
#include "base/AsioRuntime.h"

#include "base/AsioMainLoop.h"
#include "base/AsioSlowQueue.h"
#include "base/AsioTimers.h"
#include "base/CurrentQueue.h"
#include "base/SerialQueue.h"
#include "base/TaskSlot.h"
#include "base/ThreadPool.h"

#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

namespace meridal {

namespace {
/// Two files may be waiting for their disks at once, and one slow pass of a collector still gets on.
constexpr std::size_t poolThreads = 3;
/// Of a delayed task: what it may be late, as a part of its delay and at most.
constexpr double delayLeewayPart = 0.1;
constexpr double delayLeewayMost = 0.2; // s
} // namespace

/// Shared with timers and watches, which may outlive the runtime.
struct AsioRuntime::Core {
    ~Core() { close(); }

    void close()
    {
        loop->close(); // first: a task of the pool may be waiting for the main queue
        for (const auto& weak : slowQueues) {
            if (const auto queue = weak.lock()) {
                queue->close();
            }
        }
        pool->close();
        for (const auto& weak : queues) {
            if (const auto queue = weak.lock()) {
                queue->close();
            }
        }
        timers.close();
    }

    const std::shared_ptr<AsioMainLoop> loop = std::make_shared<AsioMainLoop>();
    const std::shared_ptr<ThreadPool> pool = std::make_shared<ThreadPool>(poolThreads);
    AsioTimers timers{*loop};
    std::mutex mutex; ///< guards all below
    std::vector<std::weak_ptr<SerialQueue>> queues;
    std::vector<std::weak_ptr<AsioSlowQueue>> slowQueues;
};

namespace {

using Seconds = std::chrono::duration<double>;

class AsioTimer final : public Timer {
public:
    AsioTimer(std::shared_ptr<AsioTimers> timers, AsioTimers::Handle handle)
        : timers_(std::move(timers)), handle_(std::move(handle))
    {
    }
    ~AsioTimer() override { timers_->cancel(handle_); }

private:
    std::shared_ptr<AsioTimers> timers_;
    AsioTimers::Handle handle_;
};

/// What waits for one signal or descriptor: an Asio object that waits once at a time, and the task to run each time.
template <typename Source>
struct WatchState : std::enable_shared_from_this<WatchState<Source>> {
    template <typename... Arguments>
    WatchState(std::shared_ptr<AsioMainLoop> mainLoop, Task run, Arguments... arguments)
        : loop(std::move(mainLoop)), source(loop->context(), arguments...), task(std::move(run))
    {
    }

    void ready(const asio::error_code& error)
    {
        if (error || ended) {
            return;
        }
        {
            const CurrentQueue current(loop.get());
            task.run();
        }
        if (!ended) {
            wait();
        }
    }

    void wait();

    const std::shared_ptr<AsioMainLoop> loop; // outlives the source, which belongs to it
    Source source;
    TaskSlot task;
    bool ended = false; // main queue only
};

using SignalState = WatchState<asio::signal_set>;
using DescriptorState = WatchState<asio::posix::stream_descriptor>;

template <>
void SignalState::wait()
{
    source.async_wait([weak = weak_from_this()](const asio::error_code& error, int) noexcept {
        if (const auto state = weak.lock()) {
            state->ready(error);
        }
    });
}

template <>
void DescriptorState::wait()
{
    const auto whenReadable = asio::posix::descriptor_base::wait_read;
    source.async_wait(whenReadable, [weak = weak_from_this()](const asio::error_code& error) noexcept {
        if (const auto state = weak.lock()) {
            state->ready(error);
        }
    });
}

void endSource(asio::signal_set& signals)
{
    asio::error_code ignored;
    signals.clear(ignored);
}

/// Lets go of the descriptor without closing it.
void endSource(asio::posix::stream_descriptor& descriptor) { descriptor.release(); }

template <typename State>
class AsioWatch final : public Watch {
public:
    explicit AsioWatch(std::shared_ptr<State> state) : state_(std::move(state)) { state_->wait(); }
    ~AsioWatch() override
    {
        state_->ended = true;
        state_->task.clear();
        endSource(state_->source);
    }

private:
    std::shared_ptr<State> state_;
};

} // namespace

AsioRuntime::AsioRuntime() : core_(std::make_shared<Core>()) { }

AsioRuntime::~AsioRuntime() { core_->close(); }

double AsioRuntime::wallTime() const { return Seconds(std::chrono::system_clock::now().time_since_epoch()).count(); }

double AsioRuntime::monotonicTime() const { return steadySeconds(); }

double AsioRuntime::sleptTime() const
{
#ifdef CLOCK_BOOTTIME
    const double awake = steadySeconds();
    timespec all{};
    if (clock_gettime(CLOCK_BOOTTIME, &all) == 0) {
        return static_cast<double>(all.tv_sec) + static_cast<double>(all.tv_nsec) * 1e-9 - awake;
    }
#endif
    return 0; // a system whose clocks do not tell
}

Queue& AsioRuntime::mainQueue() { return *core_->loop; }

std::shared_ptr<Queue> AsioRuntime::makeSerialQueue(std::string label)
{
    auto queue = std::make_shared<SerialQueue>(core_->pool, std::move(label));
    const std::lock_guard lock(core_->mutex);
    std::erase_if(core_->queues, [](const auto& weak) { return weak.expired(); });
    core_->queues.push_back(queue);
    return queue;
}

std::shared_ptr<Queue> AsioRuntime::makeSlowQueue(std::string label)
{
    auto queue = std::make_shared<AsioSlowQueue>(core_->loop, std::move(label));
    const std::lock_guard lock(core_->mutex);
    std::erase_if(core_->slowQueues, [](const auto& weak) { return weak.expired(); });
    core_->slowQueues.push_back(queue);
    return queue;
}

void AsioRuntime::postGlobal(Task task) { core_->pool->post(std::move(task)); }

std::unique_ptr<Timer> AsioRuntime::startTimer(Queue& queue, TimerSchedule schedule, Task task)
{
    std::weak_ptr<Queue> target;
    if (&queue == core_->loop.get()) {
        target = core_->loop;
    } else {
        target = static_cast<SerialQueue&>(queue).weak_from_this();
    }
    auto handle = core_->timers.start(std::move(target), schedule, std::move(task));
    return std::make_unique<AsioTimer>(std::shared_ptr<AsioTimers>(core_, &core_->timers), std::move(handle));
}

void AsioRuntime::after(double seconds, Task task)
{
    const double leeway = std::min(seconds * delayLeewayPart, delayLeewayMost);
    core_->timers.start(core_->loop, {.first = seconds, .leeway = leeway}, std::move(task));
}

std::unique_ptr<Watch> AsioRuntime::watchSignal(int signal, Task task)
{
    return std::make_unique<AsioWatch<SignalState>>(
        std::make_shared<SignalState>(core_->loop, std::move(task), signal));
}

std::unique_ptr<Watch> AsioRuntime::watchReadable(int descriptor, Task task)
{
    return std::make_unique<AsioWatch<DescriptorState>>(
        std::make_shared<DescriptorState>(core_->loop, std::move(task), descriptor));
}

void AsioRuntime::run() { core_->loop->run(); }

void AsioRuntime::stop() { core_->loop->stop(); }

} // namespace meridal
