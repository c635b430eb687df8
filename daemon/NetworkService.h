#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstddef>
#include <functional>

namespace meridal {

struct CollectorPorts;
struct Context;
class MeridalHistory;
class NetworkStatCollectorMac;

/// Brings the network collector, bandwidth.db and the network actions into the daemon, and answers the clients'
/// questions about interfaces and bandwidth. Main queue only, but for the actions.
class NetworkService {
public:
    NetworkService(Context& context, NetworkStatCollectorMac& collector);

    /// Fills the daemon's ports. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);
    /// Adds the two methods below to the second interface.
    void addTo(MeridalHistory& history);

    /// "bandwidth.totals": an object with "by", "from", "until", "interface", "interfaces", "after" and "limit", each
    /// of them optional. Replies once, later.
    void totals(const Value& parameters, std::function<void(Result<Value>)> reply);
    /// "network.interfaces": the interfaces as the latest tick found them, with "after" and "limit".
    Result<Value> interfaces(const Value& parameters) const;

    static constexpr std::size_t longestPage = 500;

private:
    void prepare();

    Context& context_;
    NetworkStatCollectorMac& collector_;
};

} // namespace meridal
