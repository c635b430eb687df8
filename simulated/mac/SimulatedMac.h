// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/EventSystem.h"
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"
#include "simulated/mac/Power.h"
#include "simulated/mac/Registry.h"
#include "simulated/mac/StatisticsControl.h"
#include "simulated/mac/SystemConfiguration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace meridal::test {

/// A Mac without anything in it, for one test. What the test's adapters have of it when it ends is a failure: adapters are to be
/// gone before it.
class SimulatedMac {
public:
    SimulatedMac() = default;
    ~SimulatedMac()
    {
        registry.reset();
        events.reset();
        kernel.reset();
        statistics.reset();
        power.reset();
        configuration.reset();
        EXPECT_EQ(ledger.reset(), std::vector<std::string>()) << "was not given back";
    }
    SimulatedMac(const SimulatedMac&) = delete;
    SimulatedMac& operator=(const SimulatedMac&) = delete;

    Ledger& ledger = Ledger::current();
    Registry& registry = Registry::current();
    EventSystem& events = EventSystem::current();
    Kernel& kernel = Kernel::current();
    StatisticsControl& statistics = StatisticsControl::current();
    Power& power = Power::current();
    SystemConfiguration& configuration = SystemConfiguration::current();
};

} // namespace meridal::test
