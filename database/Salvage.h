// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/SQLiteConnection.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace meridal {

/// What came out of a damaged file.
struct Salvaged {
    std::uint64_t rows = 0;
    std::size_t tables = 0;              ///< with their rows, as far as those could be read
    std::uint64_t rowsFailed = 0;        ///< read, but not to be written: each by itself, the others were
    std::vector<std::string> incomplete; ///< names of those of which something could not be read, or not be written
    SqlFailure ended =
        SqlFailure::None; ///< what kept the new file from being written; a further call goes on from there
};

/// Copies every table of a damaged database, with the rows that can still be read, into another one that is open and holds
/// nothing else.
/// The damaged file is opened for reading only, its write-ahead log included. Damage costs the rows of the pages that it
/// hit: a table is read from both ends up to it, and what lies between two damaged places is looked for by halves. Rows
/// keep their numbers and their order; indexes and the numbers given out (AUTOINCREMENT) are taken over, views are not.
/// Bounded by the size of the file, whatever the damage makes of it.
Salvaged salvage(const std::filesystem::path& damaged, SQLiteConnection::Options options, SQLiteConnection& into);

} // namespace meridal
