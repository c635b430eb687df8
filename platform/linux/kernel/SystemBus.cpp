// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/SystemBus.h"

#include "platform/linux/kernel/BusConnection.h"

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <vector>

namespace meridal {

namespace {

constexpr double retryInterval = 60; // s
constexpr double writeRetry = 0.1;   // s; a full socket is rare enough not to be watched
constexpr int messagesAtOnce = 64;   // before others on the main queue have their turn

std::string messageOf(int negativeError) { return std::strerror(-negativeError); }

} // namespace

class SystemBus::Entry final : public SystemBus::Subscription {
public:
    Entry(std::weak_ptr<std::list<Connected>> list, std::list<Connected>::iterator position)
        : list_(std::move(list)), position_(position)
    {
    }
    ~Entry() override
    {
        if (const auto list = list_.lock()) {
            list->erase(position_);
        }
    }

private:
    std::weak_ptr<std::list<Connected>> list_;
    std::list<Connected>::iterator position_;
};

SystemBus::SystemBus(Runtime& runtime, std::shared_ptr<Limitations> limitations, std::string address)
    : runtime_(runtime), limitations_(std::move(limitations)), address_(std::move(address))
{
    connect();
}

SystemBus::~SystemBus()
{
    watch_.reset();
    sd_bus_close_unref(bus_);
}

std::unique_ptr<SystemBus::Subscription> SystemBus::onConnected(Connected connected)
{
    subscribers_->push_back(std::move(connected));
    const auto position = std::prev(subscribers_->end());
    if (bus_) {
        (*position)(*bus_);
        kick();
    }
    return std::make_unique<Entry>(subscribers_, position);
}

void SystemBus::kick()
{
    if (!kicked_) {
        kicked_ = true;
        runtime_.mainQueue().post(lifetime_.guard([this] {
            kicked_ = false;
            serve();
        }));
    }
}

void SystemBus::connect()
{
    retry_.reset();
    sd_bus* bus = nullptr;
    const int result = openBus(address_, &bus);
    if (result < 0) {
        sd_bus_unref(bus);
        disconnect(messageOf(result));
        return;
    }
    bus_ = bus;
    watch_ = runtime_.watchReadable(sd_bus_get_fd(bus_), lifetime_.guard([this] { serve(); }));
    for (const Connected& connected : *subscribers_) {
        connected(*bus_);
    }
    kick(); // the greeting
}

void SystemBus::disconnect(const std::string& reason)
{
    watch_.reset();
    timer_.reset();
    bus_ = sd_bus_close_unref(bus_);
    limitations_->set("system-bus", "no connection to the system bus: " + reason);
    retry_ = runtime_.startTimer(runtime_.mainQueue(), {.first = retryInterval, .leeway = retryInterval / 6},
        lifetime_.guard([this] { connect(); }));
}

void SystemBus::serve()
{
    if (!bus_) {
        return;
    }
    int result = 1;
    for (int i = 0; i < messagesAtOnce && result > 0; ++i) {
        result = sd_bus_process(bus_, nullptr);
    }
    if (result < 0 || sd_bus_is_open(bus_) <= 0) {
        disconnect(result < 0 ? messageOf(result) : "closed by the bus");
        return;
    }
    if (sd_bus_is_ready(bus_) > 0) {
        limitations_->clear("system-bus");
    }
    if (result > 0) {
        kick();
    }
    armTimer();
}

/// sd-bus tells when it wants to be called though nothing came in: for calls that get no reply.
void SystemBus::armTimer()
{
    double wait = -1;
    std::uint64_t due = 0; // µs, CLOCK_MONOTONIC
    if (sd_bus_get_timeout(bus_, &due) >= 0 && due != UINT64_MAX) {
        wait = std::clamp(static_cast<double>(due) / 1e6 - runtime_.monotonicTime(), 0.0, retryInterval);
    }
    if ((sd_bus_get_events(bus_) & POLLOUT) != 0) {
        wait = wait < 0 ? writeRetry : std::min(wait, writeRetry);
    }
    timer_.reset();
    if (wait >= 0) {
        timer_ = runtime_.startTimer(runtime_.mainQueue(), {.first = wait}, lifetime_.guard([this] { serve(); }));
    }
}

} // namespace meridal
