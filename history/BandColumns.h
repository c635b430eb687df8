// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace meridal {

/// Beside each figure of a table, a mean, stand the lowest and the highest that went into it. Both are NULL where they are
/// the figure itself, and in rows of daemons that did not keep them.
inline std::string lowColumn(std::string_view figure) { return fmt::format("{}_low", figure); }
inline std::string highColumn(std::string_view figure) { return fmt::format("{}_high", figure); }

/// What these columns are in a row that sums up some others, as SQL.
inline std::string bandTerm(std::string_view figure, std::string_view which)
{
    const std::string low = fmt::format("min(coalesce({}, {}))", lowColumn(figure), figure);
    const std::string high = fmt::format("max(coalesce({}, {}))", highColumn(figure), figure);
    return fmt::format("CASE WHEN {0} < {1} THEN {2} END", low, high, which);
}
inline std::string lowTerm(std::string_view figure)
{
    return bandTerm(figure, fmt::format("min(coalesce({}, {}))", lowColumn(figure), figure));
}
inline std::string highTerm(std::string_view figure)
{
    return bandTerm(figure, fmt::format("max(coalesce({}, {}))", highColumn(figure), figure));
}

} // namespace meridal
