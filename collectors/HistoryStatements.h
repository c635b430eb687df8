#pragma once

#include "base/Value.h"
#include "database/StatementBatch.h"

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
};

/// A plan from the configuration's entries of these names.
InsertPlan makeInsertPlan(
    const Dictionary& config, std::string_view sqlKey, std::string_view keysKey, std::string_view table);

} // namespace meridal
