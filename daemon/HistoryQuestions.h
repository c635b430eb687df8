// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "history/HistoryCatalogue.h"
#include "history/SampleRecords.h"

#include <functional>
#include <optional>
#include <string_view>

namespace meridal {

class MeridalHistory;
struct Peer;

/// "hour" and so on, as clients call a storage with tables.
std::string_view resolutionName(StorageIndex index);
/// The nearest multiple of a step; the value itself where there is none.
double inSteps(double value, double step);

/// The clients' questions about recorded history: "history.series" and "history.samples". Main queue only.
class HistoryQuestions {
public:
    using Reply = std::function<void(Result<Value>)>;

    /// The catalogue must outlive it, and it the methods.
    explicit HistoryQuestions(const HistoryCatalogue& catalogue) : catalogue_(catalogue) { }

    void addTo(MeridalHistory& history);
    /// A page of what is recorded, ordered by name.
    Result<Value> series(const Value& parameters) const;
    /// A page of the samples of one series in one resolution. Replies once, later.
    void samples(const Value& parameters, const Peer& peer, Reply reply) const;

private:
    const HistoryCatalogue& catalogue_;
};

} // namespace meridal
