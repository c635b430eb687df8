// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace meridal {

/// What a database file has been through since the daemon started.
struct DatabaseStatistics {
    std::uint64_t rowsWritten = 0; ///< by committed statements
    std::uint64_t batchesWritten = 0;
    std::uint64_t batchesFailed = 0;     ///< attempts; a batch that is tried three times counts three
    std::uint64_t statementsFailed = 0;  ///< left out of a batch that was written
    std::uint64_t statementsDropped = 0; ///< given up because they could not be written for too long
    std::uint64_t statementsWaiting = 0; ///< now
    std::uint64_t filesSetAside = 0;     ///< damaged files, and tables of another layout
    std::uint64_t bytes = 0;             ///< on the disk, the write-ahead log included
    bool open = false;
    bool failing = false; ///< the latest attempt to write failed
};

} // namespace meridal
