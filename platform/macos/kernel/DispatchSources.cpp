// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DispatchSources.h"

#include "base/TimerGrid.h"
#include "platform/macos/kernel/DispatchCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace meridal {

/// Belongs to the source: libdispatch calls the last of the two when nothing else comes.
struct DispatchSource::Calls {
    std::shared_ptr<DispatchQueue> queue;
    Task event;
    Task ended;

    static void onEvent(void* context) noexcept { static_cast<Calls*>(context)->event(); }
    static void onEnd(void* context) noexcept
    {
        const std::unique_ptr<Calls> calls(static_cast<Calls*>(context));
        if (calls->ended) {
            calls->ended();
        }
    }
};

DispatchSource::DispatchSource(
    dispatch_source_type_t type, std::uintptr_t handle, std::shared_ptr<DispatchQueue> queue, Task event, Task ended)
    : source_(dispatch_source_create(type, handle, 0, queue->native()))
{
    auto calls = std::make_unique<Calls>(Calls{std::move(queue), std::move(event), std::move(ended)});
    dispatch_set_context(source_, calls.release());
    dispatch_source_set_event_handler_f(source_, Calls::onEvent);
    dispatch_source_set_cancel_handler_f(source_, Calls::onEnd);
}

DispatchSource::~DispatchSource()
{
    dispatch_source_cancel(source_);
    dispatch_release(source_);
}

namespace {

/// Takes the task away from the source, which may yet have an event on its way.
template <typename Base>
class SourceOwner final : public Base {
public:
    SourceOwner(std::unique_ptr<DispatchSource> source, std::shared_ptr<TaskSlot> task)
        : source_(std::move(source)), task_(std::move(task))
    {
    }
    ~SourceOwner() override { task_->clear(); }
    SourceOwner(const SourceOwner&) = delete;
    SourceOwner& operator=(const SourceOwner&) = delete;

private:
    std::unique_ptr<DispatchSource> source_; // none for a signal
    std::shared_ptr<TaskSlot> task_;
};

} // namespace

std::unique_ptr<Timer> makeDispatchTimer(std::shared_ptr<DispatchQueue> queue, const DispatchEpoch& epoch, double now,
    const TimerSchedule& schedule, Task task)
{
    auto slot = std::make_shared<TaskSlot>(std::move(task));
    DispatchQueue* const target = queue.get(); // the source holds it
    auto source = std::make_unique<DispatchSource>(
        DISPATCH_SOURCE_TYPE_TIMER, 0, std::move(queue), [target, slot] { target->fire(slot); });
    const dispatch_time_t first =
        dispatch_time(epoch.time, dispatchNanoseconds(firstFire(now, schedule) - epoch.uptime));
    const auto interval = static_cast<std::uint64_t>(dispatchNanoseconds(schedule.interval));
    dispatch_source_set_timer(source->native(), first, schedule.interval > 0 ? interval : DISPATCH_TIME_FOREVER,
        static_cast<std::uint64_t>(dispatchNanoseconds(schedule.leeway)));
    source->start();
    return std::make_unique<SourceOwner<Timer>>(std::move(source), std::move(slot));
}

std::unique_ptr<Watch> makeDescriptorWatch(std::shared_ptr<DispatchMainQueue> queue, int descriptor, Task task)
{
    auto slot = std::make_shared<TaskSlot>(std::move(task));
    // A source's descriptor must not be closed before the source has ended, which it does later, on the queue; the caller
    // closes his when the watch is gone.
    const int own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    DispatchMainQueue* const target = queue.get(); // the source holds it
    auto source = std::make_unique<DispatchSource>(
        DISPATCH_SOURCE_TYPE_READ, static_cast<std::uintptr_t>(own >= 0 ? own : descriptor), std::move(queue),
        [target, slot] {
            if (target->mayFireNow()) { // else it is reported again
                target->fire(slot);
            }
        },
        [own] {
            if (own >= 0) {
                ::close(own);
            }
        });
    source->start();
    return std::make_unique<SourceOwner<Watch>>(std::move(source), std::move(slot));
}

namespace {

/// Where the handler writes. It may run at any time, so the pipe stays as long as the process.
std::array<int, 2> signalPipe = {-1, -1};
static_assert(std::atomic<int>::is_always_lock_free);
std::atomic<int> signalPipeEnd = -1;

extern "C" void noteSignal(int signal)
{
    const int before = errno;
    const auto number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written =
        ::write(signalPipeEnd.load(), &number, 1); // full: enough of them are on their way
    errno = before;
}

void openSignalPipe()
{
    if (signalPipeEnd.load() >= 0 || ::pipe(signalPipe.data()) != 0) {
        return;
    }
    for (const int end : signalPipe) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    signalPipeEnd = signalPipe[1];
}

} // namespace

struct DispatchSignals::Watchers {
    std::mutex mutex;
    std::map<int, std::vector<std::weak_ptr<TaskSlot>>> bySignal;

    void add(int signal, const std::shared_ptr<TaskSlot>& task)
    {
        const std::lock_guard lock(mutex);
        auto& tasks = bySignal[signal];
        std::erase_if(tasks, [](const auto& weak) { return weak.expired(); });
        tasks.push_back(task);
    }

    /// One signal out of the pipe; the source comes again for the next.
    void hear(Queue& queue)
    {
        unsigned char number = 0;
        if (::read(signalPipe[0], &number, 1) != 1) {
            return;
        }
        const std::lock_guard lock(mutex);
        for (const auto& weak : bySignal[number]) {
            if (const auto task = weak.lock()) {
                queue.post([task] { task->run(); });
            }
        }
    }
};

void DispatchSignals::start()
{
    openSignalPipe();
    watchers_ = std::make_shared<Watchers>();
    DispatchMainQueue* const target = queue_.get();
    source_ = std::make_unique<DispatchSource>(DISPATCH_SOURCE_TYPE_READ, static_cast<std::uintptr_t>(signalPipe[0]),
        queue_, [target, watchers = watchers_] { watchers->hear(*target); });
    source_->start();
}

std::unique_ptr<Watch> DispatchSignals::watch(int signal, Task task)
{
    if (!source_) {
        start();
    }
    auto slot = std::make_shared<TaskSlot>(std::move(task));
    watchers_->add(signal, slot);
    struct sigaction action { };
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
    return std::make_unique<SourceOwner<Watch>>(nullptr, std::move(slot));
}

} // namespace meridal
