#pragma once

#include <string>

namespace meridal {

/// A table that a file must have. Made when missing. A table of that name with other columns, left by an older version,
/// is kept under a dated name.
struct TableSchema {
    std::string table;  ///< a constant of ours
    std::string create; ///< CREATE statement with "%@" for the table
};

} // namespace meridal
