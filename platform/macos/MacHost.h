// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Host.h"

#include <memory>

namespace meridal {

class Runtime;

/// Every seam on macOS. The runtime outlives the host.
std::unique_ptr<Host> makeMacHost(Runtime& runtime);

} // namespace meridal
