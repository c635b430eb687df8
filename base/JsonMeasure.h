// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

namespace meridal {

/// What a JSON text would become, without making it: how deep it nests, and how many values it holds. Of what is no JSON at
/// least what a parser would have made before it noticed.
struct JsonMeasure {
    int depth = 0;
    std::size_t values = 0;
};
JsonMeasure measureJson(std::string_view text);

} // namespace meridal
