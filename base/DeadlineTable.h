// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace meridal {

/// The moments at which things fall due and how late each may be, arranged so that one wake-up serves as many as
/// possible: sleep until wakeTime(), then take everything that is due by then. Times in seconds of one clock.
class DeadlineTable {
public:
    using Id = std::uint64_t;

    /// Adds an entry. An id is in the table at most once.
    void add(Id id, double deadline, double leeway);
    void remove(Id id);
    bool empty() const { return entries_.empty(); }

    /// The moment at which to wake up: the deadline of the next entry, or that of a later one when waiting for it keeps
    /// everybody within his leeway. So nobody is late but for company. Empty when there is nothing to wait for.
    std::optional<double> wakeTime() const;
    /// Removes the entries whose deadline has passed and gives them by deadline, then by id.
    std::vector<std::pair<Id, double>> takeDue(double now);

private:
    struct Entry {
        double deadline = 0;
        double latest = 0;
    };

    std::map<Id, Entry> entries_;
    std::set<std::pair<double, Id>> byDeadline_;
    std::set<std::pair<double, Id>> byLatest_;
};

/// The first moment after now in the rhythm of an entry that was due at a deadline. Moments missed meanwhile are left
/// out, and the result is always later than now.
double nextInRhythm(double deadline, double interval, double now);

} // namespace meridal
