// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "wire/RequestKey.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// The ranked lists of processes that the daemon offers, by the key of their envelopes and in the order of their keys.
inline constexpr std::array allTopLists = {
    RequestKey::Cpu, RequestKey::Memory, RequestKey::Disk, RequestKey::Network, RequestKey::Energy};

/// The list's name on the command line, "cpu".
std::string_view listName(RequestKey list);

/// One process, or one group of them.
struct TopRow {
    std::string pid;
    std::string name;
    std::array<std::optional<double>, 2> figures; ///< by column of the list; absent where the daemon did not say
};

/// Where captured traffic went, in bytes of both directions a second.
struct TrafficShares {
    double attributed = 0; ///< processes', on the list or not
    double kernel = 0;
    double unattributed = 0; ///< nobody was found for it

    double unattributedPercent() const;
};

/// One envelope as a table; the rows keep the daemon's ranking, or are ranked by the sum where it sends two rankings.
struct TopTable {
    RequestKey list = RequestKey::Cpu;
    std::vector<TopRow> rows;
    std::optional<TrafficShares> traffic; ///< of the network list, while the daemon captures
    std::string trafficSource;            ///< how that list is counted, as the daemon calls it; "" when it does not say
    std::optional<double> time;           ///< s since 1970 when it came
    std::optional<double> seconds;        ///< that it is about: since the one before; absent of the first

    /// The sum of a column over all rows; absent when no row has a figure.
    std::optional<double> sum(std::size_t column) const;
};

/// Reads an envelope; whatever is missing or of the wrong kind is left out, and who has used nothing. Names and pids are made
/// printable. `seconds` after the envelope before, at `time`: what is told as bytes becomes bytes a second, absent without it.
TopTable readTopTable(
    RequestKey list, const Dictionary& envelope, std::optional<double> seconds = {}, std::optional<double> time = {});

/// The table for programs: {"list","time","seconds","processes":[{"pid","name",<figure>...}]}, figures as numbers, their
/// unit in the key, the time as ISO 8601 with its zone.
Dictionary tableAsJson(const TopTable& table, std::size_t maximumRows);

} // namespace meridal
