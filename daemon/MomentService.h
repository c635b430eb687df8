// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Value.h"
#include "daemon/MomentRecord.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace meridal {

class BatteryStatCollector;
class MeridalHistory;
class NetworkStatCollector;
class UptimeService;
struct Context;
struct Peer;

/// The clients' question what was at a moment: everything that the records have of it, each figure in the finest
/// resolution that still reaches back so far. Reads on the files' own queues. Main queue only.
class MomentService {
public:
    struct Records {
        const HistoryCatalogue& catalogue;
        UptimeService& uptime;
        BatteryStatCollector& battery;
        NetworkStatCollector& network;
    };
    /// The user whose applications alone a client may see; absent: it may see all.
    using Viewer = std::optional<std::uint32_t>;
    using ViewerOf = std::function<Viewer(const Peer&)>;
    /// What the record of applications has of the period that a moment lies in, for this viewer. Replies once, on the main
    /// queue; absent when it cannot be read.
    using ReadApplications =
        std::function<void(double time, Viewer viewer, std::function<void(std::optional<RecordedMoment>)> reply)>;
    using Reply = std::function<void(Result<Value>)>;

    /// The records must outlive its use.
    MomentService(Context& context, const Records& records);

    void setApplications(ReadApplications read, ViewerOf viewerOf);
    /// Adds the method below. It must outlive it.
    void addTo(MeridalHistory& methods);

    /// "moments.at": an object with "time", s since 1970; also as the only element of an array. Replies once, later.
    void at(const Value& parameters, const Peer& peer, Reply reply);

private:
    class Gathering;

    Context& context_;
    Records records_;
    ReadApplications readApplications_;
    ViewerOf viewerOf_;
    Lifetime lifetime_;
};

} // namespace meridal
