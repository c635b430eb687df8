// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

namespace meridal {

class MeridalHistory;
class PlatformController;
struct Context;
struct Peer;

/// "machine.info": what this machine and its system are, which stays as it is while they run. The serial number is for root;
/// what is not known is left out. Main queue only.
Value describeMachine(Context& context, const PlatformController& platform, const Peer& peer);

/// Adds the method, which takes no parameters. Context and platform outlive the methods.
void addMachineDescription(MeridalHistory& methods, Context& context, const PlatformController& platform);

} // namespace meridal
