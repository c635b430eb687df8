// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "daemon/ZAVPowerManager.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace meridal::test {
namespace {

/// A manager on a fake machine; what it posts and whom it tells is written down in order.
class PowerManagerTest : public ::testing::Test, protected ZAVPowerManagerDelegate {
protected:
    PowerManagerTest()
    {
        for (const char* name :
            {"PowerNotifierSourceChanged", "PowerNotifierStateChanged", "PowerNotifierSleep", "PowerNotifierWake"}) {
            observations.push_back(
                machine.notifications.observe(name, nullptr, [this, name](const void* object, const Dictionary& info) {
                    EXPECT_TRUE(!manager || object == manager.get()) << "or it is being made";
                    EXPECT_TRUE(info.empty());
                    events.emplace_back(name + 13); // without "PowerNotifier"
                }));
        }
        machine.log.addListener([this](LogLevel, std::string_view line) { lines.emplace_back(line); });
    }
    void start(std::vector<PowerSourceRecord> sources = {})
    {
        machine.powerSources().records = std::move(sources);
        manager = std::make_unique<ZAVPowerManager>(machine.context);
        manager->addDelegate(*this);
        events.clear();
    }
    std::vector<std::string> take() { return std::exchange(events, {}); }
    PowerMessages::Token send(PowerMessage message) { return machine.powerMessages().send(message); }
    void sleepFor(double seconds)
    {
        send(PowerMessage::SystemWillSleep);
        machine.runtime.sleepMachine(seconds);
        send(PowerMessage::SystemHasPoweredOn);
    }
    const std::vector<PowerMessages::Token>& allowed() { return machine.powerMessages().allowed; }

    void powerManagerWillSleep() override
    {
        events.emplace_back("willSleep");
        for (int i = 0; i < delays; ++i) {
            ends.push_back(manager->delayAllowance());
        }
        if (fails) {
            throw std::runtime_error("the disk is gone");
        }
        if (raises) {
            throw Raised();
        }
    }
    void powerManagerDidWake() override { events.emplace_back("didWake"); }

    const PowerSourceRecord battery{.supply = PowerSupplyState::Battery};
    const PowerSourceRecord charging{.supply = PowerSupplyState::AC, .charging = true};
    const PowerSourceRecord full{.supply = PowerSupplyState::AC};
    FakeMachine machine;
    std::vector<std::string> events;
    std::vector<std::string> lines;
    std::vector<std::unique_ptr<NotificationCenter::Observation>> observations;
    std::unique_ptr<ZAVPowerManager> manager;
    /// Stands for what a system's libraries raise, which is no std::exception: an NSException on a Mac.
    struct Raised { };
    bool fails = false;
    bool raises = false;
    int delays = 0;
    std::vector<Task> ends;
};

using Events = std::vector<std::string>;

TEST_F(PowerManagerTest, TheSourceIsWhatTheLastInternalBatterySays)
{
    manager = std::make_unique<ZAVPowerManager>(machine.context);
    EXPECT_EQ(manager->source(), -1) << "a desktop";
    EXPECT_EQ(manager->state(), -1);
    EXPECT_EQ(take(), (Events{"StateChanged"})) << "which begins at 0";

    const PowerSourceRecord ups{.kind = PowerSourceKind::UPS, .supply = PowerSupplyState::Battery};
    using Step = std::tuple<std::vector<PowerSourceRecord>, int, int, Events>;
    const Events both = {"SourceChanged", "StateChanged"};
    for (const auto& [sources, source, state, expected] :
        {Step{{battery, charging, ups}, 1, 1, both}, Step{{full}, 1, 2, {"StateChanged"}}, Step{{battery}, 0, 0, both},
            Step{{battery}, 0, 0, {}}, Step{{charging}, 1, 1, both},
            Step{{PowerSourceRecord()}, 1, 2, {"StateChanged"}}}) { // whatever is not the battery
        machine.powerSources().change(sources);
        EXPECT_EQ(manager->source(), source);
        EXPECT_EQ(manager->state(), state);
        EXPECT_EQ(take(), expected);
    }
}

TEST_F(PowerManagerTest, SleepAddsUpUntilTheSourceChanges)
{
    start({battery});
    sleepFor(60);
    machine.runtime.advance(600);
    sleepFor(30);
    EXPECT_DOUBLE_EQ(manager->sleepTotal(), 90);
    EXPECT_EQ(take(), (Events{"willSleep", "Sleep", "didWake", "Wake", "willSleep", "Sleep", "didWake", "Wake"}));
    EXPECT_EQ(lines, (Events{"sleep", "wake", "60.00", "sleep", "wake", "30.00"}));
    machine.powerSources().change({charging});
    EXPECT_EQ(manager->sleepTotal(), 0);
}

TEST_F(PowerManagerTest, AWakeWithoutASleepOrOfOneCalledOffAddsNothingButIsTold)
{
    start();
    send(PowerMessage::SystemHasPoweredOn);
    EXPECT_EQ(take(), (Events{"didWake", "Wake"}));
    EXPECT_EQ(manager->sleepTotal(), 0) << "not the time since 1970";
    send(PowerMessage::SystemWillSleep);
    machine.runtime.advance(2.5); // a driver refused
    send(PowerMessage::SystemHasPoweredOn);
    send(PowerMessage::SystemHasPoweredOn);
    EXPECT_EQ(manager->sleepTotal(), 0);
    EXPECT_EQ(take().size(), 6U);
    send(PowerMessage::SystemWillSleep);
    machine.runtime.advance(30); // until everything is frozen
    machine.runtime.stepWallClock(-7200);
    machine.runtime.sleepMachine(21);
    machine.runtime.advance(26);
    send(PowerMessage::SystemHasPoweredOn);
    EXPECT_DOUBLE_EQ(manager->sleepTotal(), 21) << "what the kernel slept, whatever was announced or set";
    EXPECT_DOUBLE_EQ(manager->lastSleep(), 21);
    machine.powerSources().change({charging});
    take();
    manager->sleep();
    machine.runtime.sleepMachine(10);
    manager->wake();
    EXPECT_DOUBLE_EQ(manager->sleepTotal(), 10);
    EXPECT_EQ(take(), (Events{"Sleep", "Wake"})) << "no delegates";
}

TEST_F(PowerManagerTest, OnlyTheTwoQuestionsAreAnswered)
{
    start();
    const auto can = send(PowerMessage::CanSystemSleep);
    EXPECT_EQ(allowed(), std::vector{can});
    for (const std::uint32_t other : {0xE0000290U, 0xE0000320U, 0xE0000250U, 0xE0000300U, 0U}) {
        send(PowerMessage(other));
    }
    EXPECT_EQ(allowed(), std::vector{can});
    const auto will = send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(allowed(), (std::vector{can, will})) << "at once, as nobody delays it";
    send(PowerMessage::SystemHasPoweredOn);
    take();
    fails = true;
    const auto failing = send(PowerMessage::SystemWillSleep);
    EXPECT_EQ(allowed().back(), failing) << "also when a delegate fails";
    EXPECT_EQ(take(), (Events{"willSleep"}));
    machine.runtime.sleepMachine(5);
    send(PowerMessage::SystemHasPoweredOn);
    EXPECT_DOUBLE_EQ(manager->sleepTotal(), 5);
}

TEST_F(PowerManagerTest, WhatTheSystemsLibrariesRaiseGoesThroughAndTheSleepIsAllowed)
{
    start();
    raises = true;
    EXPECT_THROW(send(PowerMessage::SystemWillSleep), Raised) << "its adapter knows the kind";
    EXPECT_EQ(allowed().size(), 1U);
    send(PowerMessage::SystemHasPoweredOn);
    delays = 1;
    EXPECT_THROW(send(PowerMessage::SystemWillSleep), Raised);
    EXPECT_EQ(allowed().size(), 1U) << "somebody still writes";
    machine.runtime.advance(10);
    EXPECT_EQ(allowed().size(), 2U) << "and is not waited for for ever";
}

TEST_F(PowerManagerTest, ASlowDiskDelaysTheSleepButNotBeyondTheBound)
{
    start();
    delays = 2;
    const auto first = send(PowerMessage::SystemWillSleep);
    ends[0]();
    machine.runtime.advance(2.9);
    EXPECT_TRUE(allowed().empty());
    machine.runtime.advance(0.2);
    EXPECT_EQ(allowed(), std::vector{first});
    EXPECT_NE(lines.back().find("too slow"), std::string::npos);
    send(PowerMessage::SystemHasPoweredOn);

    const auto second = send(PowerMessage::SystemWillSleep);
    ends[1](); // of the sleep before: says nothing about this one
    ends[2]();
    EXPECT_EQ(allowed(), std::vector{first});
    ends[3]();
    EXPECT_EQ(allowed(), (std::vector{first, second}));
    machine.runtime.advance(10);
    EXPECT_EQ(allowed().size(), 2U) << "once each";

    const auto third = send(PowerMessage::SystemWillSleep);
    manager.reset(); // the daemon ends: nobody would allow it any more
    EXPECT_EQ(allowed().back(), third);
    EXPECT_FALSE(machine.powerMessages().handler);
    EXPECT_TRUE(machine.powerSources().observers.empty());
    ends.back()();
}

} // namespace
} // namespace meridal::test
