#pragma once

#include "base/Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace meridal {

struct Context;
class NetworkStatisticsStatCollector;
class PacketStatCollector;
class TrafficCounterCollector;

/// How network traffic is counted by process.
enum class TrafficSource : std::uint8_t {
    Auto,    ///< the first of the following that can be had
    Bpf,     ///< by the kernel, per process
    Pcap,    ///< by capture
    Sockets, ///< by the kernel, per connection: payload, and on Linux of TCP only
};

/// By its name on the command line, "bpf"; Auto for any other.
TrafficSource trafficSourceFrom(std::string_view name);

/// Network traffic by process, while a client wants it, from the best source that there is. Main queue only.
class TrafficService {
public:
    struct Collectors {
        TrafficCounterCollector& counters;
        PacketStatCollector& packets;
        NetworkStatisticsStatCollector& statistics;
    };

    TrafficService(Context& context, const Collectors& collectors, TrafficSource source = TrafficSource::Auto);
    ~TrafficService();
    TrafficService(const TrafficService&) = delete;
    TrafficService& operator=(const TrafficService&) = delete;

    /// Whether packets may be captured to count them. Before the first start.
    void setMayCapture(bool may) { mayCapture_ = may; }
    void start();
    void stop();
    /// Adds what came since the last pass to the process items.
    void process();

    /// For `status`: how traffic is counted, and what became of it since the start.
    Dictionary describe() const;
    /// Where the figures of the network list come from, and where the bytes of the latest interval went: {"source",
    /// "attributed": {"d","u"}, "kernel": {...}, "unattributed": {...}}, with "source" alone unless all traffic is counted.
    Dictionary latestShares() const;

private:
    bool startCounters();
    bool startCapture();
    void startStatistics();
    const char* sourceInUse() const;
    void sayWhy(const std::string& instead);
    void leaveFallBack();

    Context& context_;
    TrafficCounterCollector& counters_;
    PacketStatCollector& packets_;
    NetworkStatisticsStatCollector& statistics_;
    const TrafficSource source_;
    bool mayCapture_ = true;
};

} // namespace meridal
