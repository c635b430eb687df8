#pragma once

#include "base/Value.h"

#include <string>

namespace meridal {

struct CollectorPorts;
struct Context;
struct TrafficShare;
class NetworkStatisticsStatCollector;
class PacketStatCollector;

/// Brings per-process network traffic into the daemon: capture while a client wants it, and the kernel's own counters
/// of connections where this process may not capture. Main queue only.
class CaptureKeeper {
public:
    CaptureKeeper(Context& context, PacketStatCollector& packets, NetworkStatisticsStatCollector& statistics);
    ~CaptureKeeper();
    CaptureKeeper(const CaptureKeeper&) = delete;
    CaptureKeeper& operator=(const CaptureKeeper&) = delete;

    /// Fills the daemon's ports for capture. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);

    /// For `status`: how traffic is counted, and what became of it since the start.
    Dictionary describe() const;
    /// Where the bytes of the latest interval went: {"attributed": {"d","u"}, "kernel": {...}, "unattributed": {...}}. Null
    /// while nothing is captured.
    Value latestShares() const;

private:
    void start();
    void stop();
    void process();
    void fallBack();
    void leaveFallBack();

    Context& context_;
    PacketStatCollector& packets_;
    NetworkStatisticsStatCollector& statistics_;
};

} // namespace meridal
