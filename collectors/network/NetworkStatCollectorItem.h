// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Rate.h"
#include "base/Value.h"
#include "collectors/StatCollectorItem.h"
#include "platform/host/NetworkInterfaces.h"

#include <optional>
#include <string>

namespace meridal {

/// One network interface; its key is the name that it has now.
class NetworkStatCollectorItem final : public StatCollectorItem {
public:
    using StatCollectorItem::StatCollectorItem;

    /// What the latest pass read of it.
    const InterfaceRecord& record() const { return record_; }
    /// Takes the record of a new pass over; `time` is monotonic, in s. Answers whether something changed that decides how
    /// the machine is connected: name, address, link.
    bool update(const InterfaceRecord& record, double time);
    /// What the interface is made of, in the words of a Mac: "Ethernet", "AirPort", "Loopback".
    const char* hardware() const;
    bool isWireless() const { return record_.kind == InterfaceKind::WiFi; }
    bool primary() const { return primary_; }
    void setPrimary(bool primary) { primary_ = primary; }

    /// Bytes per second over the latest pass; absent on the first one, after a replug and when the counters restarted.
    std::optional<double> uploadRate() const { return uploadRate_; }
    std::optional<double> downloadRate() const { return downloadRate_; }

    /// All of it for clients.
    Dictionary describe() const;

private:
    InterfaceRecord record_;
    CounterReading sent_;
    CounterReading received_;
    std::optional<double> uploadRate_;
    std::optional<double> downloadRate_;
    bool primary_ = false;
};

/// An address as people write it: "192.0.2.1", "2001:db8::1" (RFC 5952).
std::string textOf(const InterfaceAddress& address);

} // namespace meridal
