// SPDX-License-Identifier: Apache-2.0
#include "client/EventLoop.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <utility>

namespace meridal {

namespace {

using Clock = asio::steady_timer::clock_type;

class OneShot final : public Timer {
public:
    OneShot(asio::io_context& context, double seconds, Task task)
        : timer_(std::make_shared<asio::steady_timer>(context)), alive_(std::make_shared<bool>(true))
    {
        timer_->expires_after(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
        timer_->async_wait([timer = timer_, alive = alive_, task = std::move(task)](std::error_code error) {
            if (!error && *alive) {
                task();
            }
        });
    }
    ~OneShot() override
    {
        *alive_ = false;
        timer_->cancel();
    }

private:
    std::shared_ptr<asio::steady_timer> timer_;
    std::shared_ptr<bool> alive_;
};

/// Waits again after every event until its owner, the Watch, is gone. The operations keep it alive.
template <typename Source>
struct Repeated : std::enable_shared_from_this<Repeated<Source>> {
    Repeated(asio::io_context& context, Task eventTask) : source(context), task(std::move(eventTask)) { }

    void wait()
    {
        auto next = [self = this->shared_from_this()](std::error_code error, auto...) {
            if (!error && self->alive) {
                self->task();
                if (self->alive) {
                    self->wait();
                }
            }
        };
        if constexpr (std::is_same_v<Source, asio::signal_set>) {
            source.async_wait(std::move(next));
        } else {
            source.async_wait(asio::posix::stream_descriptor::wait_read, std::move(next));
        }
    }

    Source source;
    Task task;
    bool alive = true;
};

class SignalWatch final : public Watch {
public:
    SignalWatch(asio::io_context& context, const std::vector<int>& signals, Task task)
        : signals_(std::make_shared<Repeated<asio::signal_set>>(context, std::move(task)))
    {
        for (const int signal : signals) {
            signals_->source.add(signal);
        }
        signals_->wait();
    }
    ~SignalWatch() override
    {
        signals_->alive = false;
        std::error_code ignored;
        signals_->source.cancel(ignored); // lets go of the operation that keeps the set alive; clear() alone does not
        signals_->source.clear(ignored);
    }

private:
    std::shared_ptr<Repeated<asio::signal_set>> signals_;
};

class ReadableWatch final : public Watch {
public:
    ReadableWatch(asio::io_context& context, int descriptor, Task task)
        : descriptor_(std::make_shared<Repeated<asio::posix::stream_descriptor>>(context, std::move(task)))
    {
        std::error_code refused;
        descriptor_->source.assign(descriptor, refused);
        if (!refused) {
            descriptor_->wait();
        }
    }
    ~ReadableWatch() override
    {
        descriptor_->alive = false;
        if (descriptor_->source.is_open()) {
            // It stays the caller's, open; and a terminal that did not wait for input any more would end the shell's reading.
            std::error_code ignored;
            descriptor_->source.native_non_blocking(false, ignored);
            descriptor_->source.release();
        }
    }

private:
    std::shared_ptr<Repeated<asio::posix::stream_descriptor>> descriptor_;
};

} // namespace

struct EventLoop::State {
    asio::io_context context{1};
};

EventLoop::EventLoop() : state_(std::make_unique<State>()) { }

EventLoop::~EventLoop() = default;

double EventLoop::now() const { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

std::unique_ptr<Timer> EventLoop::after(double seconds, Task task)
{
    return std::make_unique<OneShot>(state_->context, seconds, std::move(task));
}

std::unique_ptr<Watch> EventLoop::watchSignals(const std::vector<int>& signals, Task task)
{
    return std::make_unique<SignalWatch>(state_->context, signals, std::move(task));
}

std::unique_ptr<Watch> EventLoop::watchReadable(int descriptor, Task task)
{
    return std::make_unique<ReadableWatch>(state_->context, descriptor, std::move(task));
}

void EventLoop::run()
{
    state_->context.restart();
    state_->context.run();
}

void EventLoop::stop() { state_->context.stop(); }

asio::io_context& EventLoop::context() { return state_->context; }

} // namespace meridal
