// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/applications/ApplicationCells.h"
#include "collectors/applications/RecordStep.h"
#include "collectors/applications/RecordedGroups.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class SQLiteConnection;

/// Minutes that the table of a step does not have yet: those that start from `from` on and before `until` are part of the
/// period that starts at `period`.
struct RunningMinutes {
    double from = 0; ///< s since 1970
    double until = 0;
    double period = 0;
};
using RunningPeriods = std::array<RunningMinutes, recordSteps.size()>;

/// Whose applications are asked for. A viewer sees those of his own and the kernel; none: sees all.
struct WhoseApplications {
    std::optional<std::uint32_t> viewer;
    std::optional<std::uint32_t> owner; ///< only what is that user's: neither "other" nor the kernel is
};

/// Where a page of totals goes on: behind this place in their order.
struct TotalsCursor {
    double rank = 0;
    std::int64_t number = 0;
};

struct TotalsQuestion {
    double from = 0; ///< s since 1970
    double until = 0;
    RecordStep step = RecordStep::Hour;
    RankedBy by = RankedBy::Cpu;
    WhoseApplications whose;
    std::size_t limit = 30;
    std::optional<TotalsCursor> after;
};

struct RecordedTotals {
    double from =
        0; ///< whole periods that touch what was asked for, as far as there is something; both 0: nothing is there
    double until = 0;
    std::vector<RecordedGroup> groups; ///< the largest first; "other" and the kernel after all others
    std::optional<TotalsCursor> next;  ///< there are more
};

struct CourseQuestion {
    double from = 0;
    double until = 0;
    RecordStep step = RecordStep::Hour;
    std::string identity;
    WhoseApplications whose;
    std::size_t limit = 30;
    std::optional<double> after; ///< start of the last period of the page before
};

struct RecordedCourse {
    struct Period {
        double start = 0;
        double seconds = 0; ///< of it that are recorded, whether the group was there or not
        RecordedGroup group;
    };
    bool isKnown = false;        ///< the record has such a group, at that time or another
    RecordedGroup group;         ///< who it is; the owner is absent, too, when it is several users'
    std::vector<Period> periods; ///< oldest first; those in which it is by itself
    bool more = false;
};

struct MomentQuestion {
    double time = 0;
    double now = 0;
    WhoseApplications whose;
    RecordKeep keep = {};
};

/// One page of each. Absent when the file cannot be read. On the file's queue.
std::optional<RecordedTotals> readTotals(
    SQLiteConnection& connection, const TotalsQuestion& question, const RunningPeriods& running);
std::optional<RecordedCourse> readCourse(
    SQLiteConnection& connection, const CourseQuestion& question, const RunningPeriods& running);
std::optional<RecordedMoment> readMoment(
    SQLiteConnection& connection, const MomentQuestion& question, const RunningPeriods& running);

/// The finest step that reaches back to a moment and has the range in so many periods at most; else months.
RecordStep stepFor(double from, double until, double now, std::size_t periods, const RecordKeep& keep = {});

} // namespace meridal
