// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

class HistoryRecorder;
class RecordedSeries;

/// One thing whose history clients can ask for.
struct HistorySeries {
    std::string key;                 ///< of the recorder's item; empty when the samples are the recorder's own
    std::string name;                ///< for people
    std::string unit;                ///< "°C", "V", "A", "W", "rpm", "%"; empty for plain numbers
    std::vector<std::string> values; ///< the columns of its samples, as its recorder names them
    /// Clients other than root get values rounded to multiples of this; 0: as they are. For figures whose last digits
    /// tell what other users' programs do.
    double step = 0;
    std::string origin = {}; ///< what tells it from others of its name: a sensor's chip or disk, a disk's device
};

/// Who keeps history, and of what. Main queue only.
class HistoryCatalogue {
public:
    using Describe = std::function<std::vector<HistorySeries>()>;
    struct Entry {
        HistoryRecorder* recorder = nullptr;
        Describe describe;
        RecordedSeries* earlier = nullptr; ///< the series of earlier runs that are described, too; null: none are
    };

    /// Offers a record under a name: lower-case letters, which name its series together with their keys. The
    /// recorder must outlive the catalogue's use.
    void add(std::string name, HistoryRecorder& recorder, Describe describe, RecordedSeries* earlier = nullptr)
    {
        entries_.insert_or_assign(std::move(name), Entry{&recorder, std::move(describe), earlier});
    }
    /// Runs it once all that earlier runs recorded is described: at once but in the first moments after a start, in which
    /// it would be missing. A file that does not answer keeps nobody waiting for more than some seconds.
    void whenComplete(Task task) const;
    const std::map<std::string, Entry, std::less<>>& entries() const { return entries_; }

private:
    std::map<std::string, Entry, std::less<>> entries_;
};

} // namespace meridal
