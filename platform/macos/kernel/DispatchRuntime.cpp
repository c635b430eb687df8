// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DispatchRuntime.h"

#include "platform/macos/kernel/DispatchCalls.h"
#include "platform/macos/kernel/DispatchQueues.h"
#include "platform/macos/kernel/DispatchSources.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

namespace meridal {

struct DispatchRuntime::Core {
    explicit Core(std::shared_ptr<DispatchGround> system)
        : ground(std::move(system)), main(std::make_shared<DispatchMainQueue>(ground)), signals(main)
    {
    }
    ~Core() { dispatch_release(global); }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    std::shared_ptr<DispatchSerialQueue> make(std::string label, bool slow)
    {
        auto queue = std::make_shared<DispatchSerialQueue>(ground, main, std::move(label));
        const std::lock_guard lock(mutex);
        std::erase_if(queues, [](const Made& made) { return made.queue.expired(); });
        queues.push_back({queue, slow});
        return queue;
    }

    /// All are closed before any is waited for: a task in progress may be waiting for another queue, first of all main.
    void close()
    {
        main->close();
        closed = true;
        std::vector<std::shared_ptr<DispatchSerialQueue>> wait;
        {
            const std::lock_guard lock(mutex);
            for (const Made& made : queues) {
                if (auto queue = made.queue.lock()) {
                    queue->close();
                    if (!made.slow) {
                        wait.push_back(std::move(queue));
                    }
                }
            }
        }
        for (const auto& queue : wait) {
            queue->drain();
        }
        dispatch_group_wait(global, DISPATCH_TIME_FOREVER);
    }

    struct Made {
        std::weak_ptr<DispatchSerialQueue> queue;
        bool slow;
    };

    const std::shared_ptr<DispatchGround> ground;
    const std::shared_ptr<DispatchMainQueue> main;
    const DispatchEpoch epoch{.uptime = ground->uptime(), .time = dispatch_time(DISPATCH_TIME_NOW, 0)};
    DispatchSignals signals;
    const dispatch_group_t global = dispatch_group_create();
    std::atomic<bool> closed = false; ///< of what runs in `global`
    std::mutex mutex;                 ///< guards `queues`
    std::vector<Made> queues;
};

DispatchRuntime::DispatchRuntime(std::unique_ptr<DispatchGround> ground)
    : core_(std::make_unique<Core>(std::move(ground)))
{
}

/// While the core is still there to be asked: one of the libraries' unique_ptr is null before it deletes.
DispatchRuntime::~DispatchRuntime() { core_->close(); }

double DispatchRuntime::wallTime() const
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

double DispatchRuntime::monotonicTime() const { return core_->ground->continuousTime(); }

double DispatchRuntime::sleptTime() const
{
    const double awake = core_->ground->uptime();
    return core_->ground->continuousTime() - awake;
}

Queue& DispatchRuntime::mainQueue() { return *core_->main; }

std::shared_ptr<Queue> DispatchRuntime::makeSerialQueue(std::string label)
{
    return core_->make(std::move(label), false);
}

std::shared_ptr<Queue> DispatchRuntime::makeSlowQueue(std::string label) { return core_->make(std::move(label), true); }

void DispatchRuntime::postGlobal(Task task)
{
    dispatchAsync(core_->global, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0),
        [core = core_.get(), task = std::move(task)] { // which waits for the group at the end
            if (!core->closed) {
                core->ground->perform(task);
            }
        });
}

std::unique_ptr<Timer> DispatchRuntime::startTimer(Queue& queue, TimerSchedule schedule, Task task)
{
    std::shared_ptr<DispatchQueue> target = core_->main;
    if (&queue != core_->main.get()) {
        target = static_cast<DispatchSerialQueue&>(queue).shared_from_this();
    }
    return makeDispatchTimer(std::move(target), core_->epoch, core_->ground->uptime(), schedule, std::move(task));
}

void DispatchRuntime::after(double seconds, Task task) { core_->main->after(seconds, std::move(task)); }

std::unique_ptr<Watch> DispatchRuntime::watchSignal(int signal, Task task)
{
    return core_->signals.watch(signal, std::move(task));
}

std::unique_ptr<Watch> DispatchRuntime::watchReadable(int descriptor, Task task)
{
    return makeDescriptorWatch(core_->main, descriptor, std::move(task));
}

void DispatchRuntime::run() { core_->main->run(); }

void DispatchRuntime::stop() { core_->main->stop(); }

} // namespace meridal
