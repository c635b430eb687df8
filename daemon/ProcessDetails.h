// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/process/ProcessTableQuery.h"

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

namespace meridal {

class ProcessStatCollector;
class ProcessStatCollectorItem;
struct Context;
struct ProcessSocket;

/// Everything that is known of one process, and how the last minute went for those that somebody asked for. Main queue only.
class ProcessDetails {
public:
    ProcessDetails(Context& context, ProcessStatCollector& processes, ProcessTexts& texts)
        : context_(context), processes_(processes), texts_(texts)
    {
    }

    /// After each pass.
    void passed();
    /// `mayLookInside`: also at what only its owner may see of it. From now on its course is kept.
    Value of(ProcessStatCollectorItem& item, const ProcessView& view, bool mayLookInside, const TableMoment& moment);

    static constexpr double courseLength = 60; ///< s
    static constexpr double keptFor = 300;     ///< s after the last question
    static constexpr std::size_t mostCourses = 64;
    static constexpr std::size_t mostRelatives = 256; ///< parents, children
    static constexpr std::size_t mostHosts = 50;
    static constexpr std::size_t longestCommand = 16'384; ///< bytes

private:
    struct Point {
        double time = 0; ///< s since 1970
        std::optional<double> cpu;
        std::optional<double> footprint;
    };
    struct Course {
        std::uint64_t startIdentity = 0;
        double askedAt = 0; ///< monotonic s
        std::deque<Point> points;
    };

    static Point pointOf(const ProcessStatCollectorItem& item, double time);
    Course& courseOf(const ProcessStatCollectorItem& item);
    Value describe(ProcessStatCollectorItem& item);
    Value parentsOf(const ProcessStatCollectorItem& item, const ProcessView& view);
    Value childrenOf(const ProcessStatCollectorItem& item, const ProcessView& view);
    Value groupOf(ProcessStatCollectorItem& item, const ProcessView& view);
    void lookInside(Value& details, const ProcessStatCollectorItem& item) const;
    static Value hostsOf(const std::vector<ProcessSocket>& sockets);

    Context& context_;
    ProcessStatCollector& processes_;
    ProcessTexts& texts_;
    std::map<std::int32_t, Course> courses_;
};

} // namespace meridal
