// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"

#include <cstddef>
#include <functional>

namespace meridal {

struct Context;
class MeridalHistory;
class NetworkStatCollectorMac;

/// Network interfaces and bandwidth.db, and the clients' questions about them. Main queue only.
class NetworkService {
public:
    NetworkService(Context& context, NetworkStatCollectorMac& collector);

    /// Takes the account of bandwidth up.
    void prepare();
    void update();
    /// With `written`, returns at once and runs that on the main queue when it is in the file; without, waits for that.
    void saveBandwidth(Task written);
    /// Adds the two methods below to the second interface.
    void addTo(MeridalHistory& history);

    /// "bandwidth.totals": an object with "by", "from", "until", "interface", "interfaces", "after" and "limit", each
    /// of them optional. Replies once, later.
    void totals(const Value& parameters, std::function<void(Result<Value>)> reply);
    /// "network.interfaces": the interfaces as the latest tick found them, with "after" and "limit".
    Result<Value> interfaces(const Value& parameters) const;

    static constexpr std::size_t longestPage = 500;

private:
    Context& context_;
    NetworkStatCollectorMac& collector_;
};

} // namespace meridal
