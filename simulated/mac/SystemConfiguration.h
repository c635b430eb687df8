// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace meridal::test {

/// What configd knows: interfaces, the dynamic store, the network preferences.
struct SystemConfiguration {
    static SystemConfiguration& current();

    /// By the system's own names: "BSD Name", "Type", "Name", "Address"; what is left out is not known.
    std::vector<std::map<std::string, std::string>> interfaces{};
    std::vector<std::string> refreshed{}; ///< BSD names
    std::map<std::string, Value> store{}; ///< the dynamic store

    std::set<std::string> sets{};                  ///< identifiers of network sets
    std::map<std::string, std::string> saved{};    ///< preferences that were written
    std::map<std::string, std::string> inEffect{}; ///< and those of them that were applied

    /// Tells the sessions that asked for one of these keys; none: that configd has started again.
    void changed(const std::vector<std::string>& keys);
    /// Forgets all of it. Sessions stay.
    void reset();

    struct Session {
        SCDynamicStoreCallBack callback;
        SCDynamicStoreContext context;
        bool hasQueue = false;
        std::set<std::string> keys{};   ///< it is told of
        std::set<std::string> untold{}; ///< those that have changed since
    };
    std::map<SCDynamicStoreRef, Session> sessions{};
    int error = kSCStatusOK; ///< of the last call that failed
};

} // namespace meridal::test
