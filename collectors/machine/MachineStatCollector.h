// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "history/HistoryCatalogue.h"
#include "history/HistoryRecorder.h"

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

class MachineCounters;

/// What the machine itself does, read and recorded. Each reading is compared with the one before; the first gives what needs
/// no comparison. All record into one file, which their owner commits for all of them. Main queue only.
class MachineStatCollector : public StatCollector {
public:
    /// Reads, and notes the figures for history.
    void updateStats() override;
    void updateHistory() override { history_.updateHistory(); }
    HistoryRecorder& history() { return history_; }
    /// The latest figures, as the second interface tells them; null before they can be had.
    virtual Value state() const = 0;
    virtual void addTo(HistoryCatalogue& catalogue) = 0;

protected:
    using Figure = std::optional<double>;
    /// Columns that make a series: figures of one unit.
    using Columns = std::vector<std::string>;

    /// `name` begins the names of its tables, the columns are those of its samples.
    MachineStatCollector(
        Context& context, const std::string& name, std::initializer_list<Columns> columns, StorageType type);
    virtual void read(double monotonicTime) = 0;
    MachineCounters& counters() const;
    /// Figures by column, those of the machine as a whole; none when they could not be had.
    void note(std::vector<Figure> figures);
    /// {"user": 12.5, ...}; what is absent is left out.
    Value named(std::span<const Figure> figures) const;
    Value namedLatest() const { return named(latest_); }
    void offer(HistoryCatalogue& catalogue, const std::string& series, const std::string& name, const std::string& unit,
        const Columns& columns);

    static double rounded(double figure);
    static Figure figureOf(const std::optional<std::uint64_t>& count);

private:
    HistoryRecorder history_;
    std::vector<Figure> latest_;
};

} // namespace meridal
