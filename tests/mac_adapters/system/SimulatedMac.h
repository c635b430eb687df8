// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/mac_adapters/system/Ledger.h"
#include "tests/mac_adapters/system/Power.h"
#include "tests/mac_adapters/system/Registry.h"
#include "tests/mac_adapters/system/SystemConfiguration.h"

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
        power.reset();
        configuration.reset();
        ledger.reset();
        EXPECT_EQ(ledger.open(), std::vector<std::string>()) << "was not given back";
    }
    SimulatedMac(const SimulatedMac&) = delete;
    SimulatedMac& operator=(const SimulatedMac&) = delete;

    Ledger& ledger = Ledger::current();
    Registry& registry = Registry::current();
    Power& power = Power::current();
    SystemConfiguration& configuration = SystemConfiguration::current();
};

} // namespace meridal::test
