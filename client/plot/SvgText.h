// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace meridal {

/// Text for a picture in SVG, between tags or inside a quoted attribute.
std::string svgText(std::string_view text);

} // namespace meridal
