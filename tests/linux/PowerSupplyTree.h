// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/power/SysfsPowerSources.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// Supplies as the kernel shows them, and what is read out of them.
struct PowerSupplyTree {
    using Attributes = std::initializer_list<std::pair<std::string_view, std::string_view>>;

    /// In files of their own.
    void set(const std::string& supply, Attributes attributes) const
    {
        for (const auto& [name, text] : attributes) {
            tree.write("sys/class/power_supply/" + supply + "/" + std::string(name), std::string(text) + "\n");
        }
    }
    /// In one "uevent" file with everything.
    void setEvent(const std::string& supply, Attributes attributes) const
    {
        std::string event = "POWER_SUPPLY_NAME=" + supply + "\n";
        for (const auto& [name, text] : attributes) {
            event += "POWER_SUPPLY_" + std::string(name) + "=" + std::string(text) + "\n";
            if (name == "SCOPE") {
                set(supply, {{"scope", text}});
            }
        }
        tree.write("sys/class/power_supply/" + supply + "/uevent", event);
    }
    SysfsPowerSources adapter() const { return {runtime, tree.root(), limits}; }
    std::vector<PowerSourceRecord> sources() const { return adapter().sources(); }
    /// The only source.
    PowerSourceRecord only() const
    {
        const auto all = sources();
        EXPECT_EQ(all.size(), 1U);
        return all.empty() ? PowerSourceRecord() : all[0];
    }

    TemporaryTree tree;
    mutable VirtualRuntime runtime;
    std::shared_ptr<Limitations> limits = std::make_shared<Limitations>();
};

} // namespace meridal::test
