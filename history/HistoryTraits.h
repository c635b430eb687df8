// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace meridal {

/// Whose the values of a recorder's samples are.
enum class StorageType : int {
    Collector = 1,
    Items = 2, ///< beside their table there is one of identifiers and times
};

/// How columns are declared. Files know their tables by it: what is in use must not change.
struct HistoryColumnTypes {
    std::string figure = "REAL"; ///< of "time" and of each value
    std::string key = "TEXT";    ///< of "uuid"
};

/// What a recorder says of itself.
struct HistoryTraits {
    std::string description;          ///< for the log
    std::vector<std::string> columns; ///< of a sample's values, in their order; at most maximumValues
    StorageType storageType = StorageType::Items;
    std::string dbTablePrefix; ///< "sensor" gives hour_sensorhistory
    std::string dbpath;        ///< the file of all storages but the long-term one
    std::string dbpathLong;    ///< the file of that one
    HistoryColumnTypes types = {};
};

} // namespace meridal
