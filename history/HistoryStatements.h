#pragma once

#include "base/Value.h"
#include "database/StatementBatch.h"
#include "history/SampleRecords.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// How samples of one storage become rows of one table, taken from a collector's configuration once.
struct InsertPlan {
    std::shared_ptr<const StatementText> text; ///< null: the configuration has no such statement
    std::vector<std::string> keys;             ///< entries of the sample, in the order of the arguments
};

/// The statements of one storage. The configuration must not change after the first sample is stored.
struct HistoryStatements {
    InsertPlan insert;
    InsertPlan insertItem;
    std::shared_ptr<const StatementText> prune;     ///< null where nothing is ever pruned
    std::shared_ptr<const StatementText> pruneItem; ///< null without an item table
    /// Removes what holds no measurement from one identifier up to another; null where rows do not tell.
    std::shared_ptr<const StatementText> pruneEmpty;
};

/// Which periods of a table hold measurements, so that empty ones never push them out: a clock that was wrong for a while
/// leaves a table full of empty periods, but takes nothing.
struct KeptPeriods {
    std::deque<std::uint64_t> measured; ///< the newest 603 identifiers, oldest first
    std::uint64_t cleanedUpTo = 0;      ///< no empty period is stored below this identifier

    void note(std::uint64_t sampleID)
    {
        measured.push_back(sampleID);
        if (measured.size() > keptSamples) {
            measured.pop_front();
        }
    }
};

/// A plan from the configuration's entries of these names.
InsertPlan makeInsertPlan(
    const Dictionary& config, std::string_view sqlKey, std::string_view keysKey, std::string_view table);

} // namespace meridal
