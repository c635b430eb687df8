// SPDX-License-Identifier: Apache-2.0
#include "client/plot/ShareChart.h"

#include "client/screen/Format.h"

#include <algorithm>
#include <cmath>

namespace meridal {

std::string shareBar(double amount, double largest, int columns)
{
    if (!(amount > 0) || !(largest > 0) || !std::isfinite(amount / largest)) {
        return {};
    }
    constexpr int eighths = 8;
    return blocks(
        std::clamp(static_cast<int>(std::lround(amount / largest * columns * eighths)), 1, columns * eighths));
}

} // namespace meridal
