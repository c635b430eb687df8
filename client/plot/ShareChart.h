// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace meridal {

/// A bar of so many columns for an amount, where the largest fills them. What is not nothing is seen.
std::string shareBar(double amount, double largest, int columns);

} // namespace meridal
