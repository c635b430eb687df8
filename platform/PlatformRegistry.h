// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/PlatformMac.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace meridal {

struct Context;

/// Platform objects by class name: the model identifier with "_" for ",", or "FauxMac".
using PlatformRegistry = std::map<std::string, std::function<std::unique_ptr<PlatformMac>(Context&)>, std::less<>>;

/// The models that differ from a plain PlatformMac.
const PlatformRegistry& platformRegistry();

} // namespace meridal
