// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace meridal {

/// A column that older versions of a table lack.
struct AddedColumn {
    std::string column;
    std::string alter; ///< ALTER TABLE statement with "%@" for the table
};

/// A table that a file must have. Made when missing. A table of that name with other columns, left by an older version,
/// gets the columns that were added since; one that differs in more than that is kept under a dated name.
struct TableSchema {
    std::string table;                   ///< a constant of ours
    std::string create;                  ///< CREATE statement with "%@" for the table
    std::vector<AddedColumn> added = {}; ///< with any, the order of the columns does not matter: new ones come last
};

/// A view that a file must have, for people who look into it. Made when missing, and made again when it reads differently.
struct ViewSchema {
    std::string view;   ///< a constant of ours
    std::string create; ///< CREATE VIEW statement with "%@" for the view
    /// An older version had a table of that name: these statements carry its rows over before it goes.
    std::vector<std::string> takeOver = {};
};

} // namespace meridal
