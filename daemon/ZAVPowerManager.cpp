// SPDX-License-Identifier: Apache-2.0
#include "daemon/ZAVPowerManager.h"

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Text.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace meridal {

ZAVPowerManager::ZAVPowerManager(Context& context) : context_(context)
{
    registerNotifications();
    updateSource();
}

ZAVPowerManager::~ZAVPowerManager() { unregisterNotifications(); }

ZAVPowerManager& ZAVPowerManager::sharedPowerManager()
{
    // Never destroyed: at the end of the process what it was built on is already gone.
    static auto& instance = *new ZAVPowerManager(Context::shared());
    return instance;
}

void ZAVPowerManager::registerNotifications()
{
    messages_ = context_.host.powerMessages->receive(
        [this](PowerMessage message, PowerMessages::Token token) { powerMessageReceived(message, token); });
    sources_ = context_.host.powerSources->observe([this] { updateSource(); });
}

void ZAVPowerManager::unregisterNotifications()
{
    sources_.reset();
    messages_.reset();
    allowPending(); // nobody would be left to do it
}

void ZAVPowerManager::addDelegate(ZAVPowerManagerDelegate& delegate)
{
    if (std::find(delegates_.begin(), delegates_.end(), &delegate) == delegates_.end()) {
        delegates_.push_back(&delegate);
    }
}

void ZAVPowerManager::removeDelegate(ZAVPowerManagerDelegate& delegate)
{
    delegates_.erase(std::remove(delegates_.begin(), delegates_.end(), &delegate), delegates_.end());
}

void ZAVPowerManager::tellDelegates(void (ZAVPowerManagerDelegate::*what)())
{
    const auto told = delegates_; // a delegate may remove itself, or another
    for (ZAVPowerManagerDelegate* delegate : told) {
        if (std::find(delegates_.begin(), delegates_.end(), delegate) != delegates_.end()) {
            (delegate->*what)();
        }
    }
}

// Power sources

void ZAVPowerManager::updateSource()
{
    int source = -1;
    int state = -1;
    for (const PowerSourceRecord& each : context_.host.powerSources->sources()) {
        if (each.kind == PowerSourceKind::InternalBattery) { // the last one speaks
            const bool onBattery = each.supply == PowerSupplyState::Battery;
            source = onBattery ? 0 : 1;
            state = onBattery ? 0 : each.charging ? 1 : 2;
        }
    }
    if (std::exchange(source_, source) != source) {
        sleepTotal_ = 0;
        context_.notifications.post("PowerNotifierSourceChanged", this);
    }
    if (std::exchange(state_, state) != state) {
        context_.notifications.post("PowerNotifierStateChanged", this);
    }
}

// Sleep and wake

void ZAVPowerManager::powerMessageReceived(PowerMessage message, PowerMessages::Token argument)
{
    switch (message) {
    case PowerMessage::CanSystemSleep:
        context_.host.powerMessages->allow(argument);
        break;
    case PowerMessage::SystemWillSleep:
        systemWillSleep(argument);
        break;
    case PowerMessage::SystemHasPoweredOn:
        systemHasPoweredOn();
        break;
    default:
        break; // the system wants no answer to the others
    }
}

void ZAVPowerManager::systemWillSleep(PowerMessages::Token token)
{
    allowPending(); // of a sleep that never came about
    const std::uint64_t number = ++sleeps_;
    pending_ = Pending{.token = token, .number = number, .delays = 1}; // 1: the delegates themselves
    try {
        context_.log.info("sleep");
        beginSleep();
        tellDelegates(&ZAVPowerManagerDelegate::powerManagerWillSleep);
        context_.notifications.post("PowerNotifierSleep", this);
    } catch (const std::exception& error) {
        context_.log.error(fmt::format("before sleep: {}", error.what()));
    } catch (...) {
        awaitDelays(
            number); // what is the host's own kind ends in its adapter, and the sleep is to be allowed all the same
        throw;
    }
    awaitDelays(number);
}

/// Ends the delay of the delegates themselves, and waits for those that they have asked for, but not for ever.
void ZAVPowerManager::awaitDelays(std::uint64_t number)
{
    endDelay(number);
    if (pending_) {
        patience_ = context_.runtime.startTimer(context_.runtime.mainQueue(), {.first = longestDelay}, [this] {
            context_.log.warning("sleep: allowed before everything was written, the disk is too slow");
            allowPending();
        });
    }
}

void ZAVPowerManager::systemHasPoweredOn()
{
    allowPending(); // what was to be written before the sleep may be late, but is no reason to hold the next one
    try {
        context_.log.info("wake");
        endSleep();
        context_.log.info(fixed2(lastSleep_));
        tellDelegates(&ZAVPowerManagerDelegate::powerManagerDidWake);
        context_.notifications.post("PowerNotifierWake", this);
    } catch (const std::exception& error) {
        context_.log.error(fmt::format("after wake: {}", error.what()));
    }
}

void ZAVPowerManager::beginSleep()
{
    sleepStart_ = context_.runtime.wallTime();
    sleptBefore_ = context_.runtime.sleptTime();
}

/// Asks the kernel how long it was. The announcements lie far apart where programs are slow to freeze and to thaw, and
/// surround a sleep that was called off as well; the wall clock may have been set meanwhile.
void ZAVPowerManager::endSleep()
{
    constexpr double hair = 0.1; // s; the two clocks behind the count are not read at one moment
    const double slept = sleptBefore_ ? context_.runtime.sleptTime() - *sleptBefore_ : 0;
    sleptBefore_.reset();
    lastSleep_ = slept > hair ? slept : 0;
    sleepTotal_ += lastSleep_;
    sleptInAll_ += lastSleep_;
}

void ZAVPowerManager::sleep(const void*)
{
    beginSleep();
    context_.notifications.post("PowerNotifierSleep", this);
}

void ZAVPowerManager::wake(const void*)
{
    endSleep();
    context_.notifications.post("PowerNotifierWake", this);
}

// The allowance

Task ZAVPowerManager::delayAllowance()
{
    if (!pending_) {
        return [] {};
    }
    ++pending_->delays;
    return lifetime_.guard([this, number = pending_->number, ended = false]() mutable {
        if (!std::exchange(ended, true)) {
            endDelay(number);
        }
    });
}

void ZAVPowerManager::endDelay(std::uint64_t number)
{
    if (pending_ && pending_->number == number && --pending_->delays <= 0) {
        allowPending();
    }
}

void ZAVPowerManager::allowPending()
{
    patience_.reset();
    if (const auto pending = std::exchange(pending_, std::nullopt)) {
        context_.host.powerMessages->allow(pending->token);
    }
}

} // namespace meridal
