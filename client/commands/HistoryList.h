// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/commands/SeriesMatch.h"
#include "client/commands/Session.h"
#include "client/commands/TimeStretch.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// Everything recorded, each with how it went and how it is now.
class HistoryList {
public:
    HistoryList(Session& session, TimeStretch stretch, std::string resolution, bool json);

    /// Asks for the samples of all series of history.series, which the names are those of; prints, and ends the run.
    void show(const Value& series, std::span<const OfferedSeries> names);

private:
    struct Entry {
        Value description; ///< of history.series, with "label"
        Value answer;      ///< of history.samples
        Value latest;      ///< the newest sample; null when there is none of the last hour
    };

    void askMore();
    void ask(std::size_t entry);
    void finished();
    void report();
    Lines lines() const;

    Session& session_;
    const TimeStretch stretch_;
    const std::string resolution_;
    const bool json_;
    std::vector<Entry> entries_;
    std::size_t asked_ = 0;
    std::size_t answered_ = 0;
};

} // namespace meridal
