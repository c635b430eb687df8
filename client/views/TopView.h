// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"
#include "client/views/TopTable.h"

#include <cstddef>
#include <optional>

namespace meridal {

/// Everything that a view of the top processes shows at one moment.
struct TopFrame {
    RequestKey list = RequestKey::Cpu;
    bool hierarchy = false;
    bool connected = true;
    std::optional<TopTable> table; ///< absent until the daemon has sent the list
    Dictionary status;             ///< the daemon's last `status`; null when it has not answered
    unsigned cores = 0;            ///< of this machine; 0: not known
};

/// The table as a block of lines: its totals, the column titles and the rows.
/// `columns` is the width to cut to, 0 for as wide as it comes.
Lines tableLines(const TopFrame& frame, std::size_t maximumRows, int columns);

/// A whole screen of at most so many lines: the daemon, the table and the keys.
Lines screenLines(const TopFrame& frame, std::size_t maximumRows, int rows, int columns);

} // namespace meridal
