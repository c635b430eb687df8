// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/process/TrafficBatch.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

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

/// Network traffic by process, from the best source that there is, for who holds it: the record, from the start to the end where
/// the kernel itself counts, and clients, as long as any wants it. They share one counting and each fold of it, so that who
/// comes or goes takes nothing from the others. Main queue only.
class TrafficService {
public:
    struct Collectors {
        TrafficCounterCollector& counters;
        PacketStatCollector& packets;
        NetworkStatisticsStatCollector& statistics;
    };

    /// `recordsByCapture`: where the kernel does not count, the record has packets captured for good. That costs at every
    /// packet, so it is for who asks for it.
    TrafficService(Context& context, const Collectors& collectors, TrafficSource source = TrafficSource::Auto,
        bool recordsByCapture = false);
    ~TrafficService();
    TrafficService(const TrafficService&) = delete;
    TrafficService& operator=(const TrafficService&) = delete;

    /// Whether packets may be captured to count them. Before the first start.
    void setMayCapture(bool may) { mayCapture_ = may; }

    // The record
    void startRecording();
    void stopRecording();
    /// Whether the folds that it is told of have all traffic, and not only that of times in which somebody looks.
    bool isRecording() const;
    /// Told of each fold while it records, when the items hold the bytes of it: once of every byte. Unlike what clients are
    /// shown, the sum over all folds never takes anything back: what was the kernel's and turns out to be a process's is kept
    /// from the kernel's share of later ones.
    using Folded = std::function<void(const TrafficAccount& fold)>;
    void setFolded(Folded folded) { folded_ = std::move(folded); }

    // The clients
    /// For one more client; the interval that the first one is shown begins now.
    void start();
    /// No client wants it any more.
    void stop();
    bool isWatched() const { return isWatched_; }

    /// The fold: the process items hold what came since the last one. Nothing while nobody holds it.
    void process();

    /// s that the figures of the items are of, which is from the fold before the latest to that; 0 where nothing counts.
    double foldSeconds() const { return isWatched_ || isRecording() ? foldSeconds_ : 0; }

    /// For `status`: how traffic is counted, and what became of it since the start. "owners" only grows, whatever the source.
    Dictionary describe() const;
    /// Where the figures of the network list come from, and where the bytes of the latest interval went: {"source",
    /// "attributed": {"d","u"}, "kernel": {...}, "unattributed": {...}}, with "source" alone unless all traffic is counted.
    Dictionary latestShares() const;

private:
    bool recordsByStatistics() const;
    bool mayCapture() const { return isWatched_ || (wantsRecord_ && recordsByCapture_); }
    void choose();
    void leaveClientsSource();
    bool startCounters();
    bool startCapture();
    void startStatistics();
    void fold();
    void noteFold();
    Dictionary owners() const;
    void foldStatistics();
    const char* sourceInUse() const;
    void sayWhy(const std::string& instead);
    void sayWhetherRecorded();
    void leaveFallBack();

    Context& context_;
    TrafficCounterCollector& counters_;
    PacketStatCollector& packets_;
    NetworkStatisticsStatCollector& statistics_;
    const TrafficSource source_;
    bool mayCapture_ = true;
    const bool recordsByCapture_;
    bool wantsRecord_ = false;
    bool isWatched_ = false;
    TrafficAccount fold_;
    TrafficAccount shown_;    ///< the latest fold as clients are told of it
    TrafficShare toldKernel_; ///< the most that has been the kernel's in all folds
    TrafficAccount sum_;      ///< of all folds
    bool hasCounted_ = false;
    double foldedAt_ = 0; ///< monotonic s of the latest fold; 0: none
    double foldSeconds_ = 0;
    Folded folded_;
};

} // namespace meridal
