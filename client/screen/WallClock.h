#pragma once

namespace meridal {

constexpr double day = 86'400; ///< s, of a plain day without a change of the clocks

/// Now, in seconds since 1970.
double wallTime();

} // namespace meridal
