// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace meridal {

/// A null, bool, integer, float, string, array or object. Numbers keep their kind.
using Value = nlohmann::json;
/// A Value that holds an object with string keys; what collectors, database and clients exchange.
using Dictionary = nlohmann::json;

} // namespace meridal
