// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessTableQuery.h"
#include "daemon/Parameters.h"

namespace meridal {

/// What a client wants to see of the processes: {"columns", "sort", "reversed", "filter", "grouped", "group", "offset", "limit"}.
/// Notes what is wrong with it in the parameters.
ProcessTableQuery processTableQuery(Parameters& parameters);

constexpr std::size_t usualTableRows = 50;
constexpr std::size_t mostTableRows = 1000;

} // namespace meridal
