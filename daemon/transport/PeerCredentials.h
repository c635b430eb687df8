// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

namespace meridal {

/// Who connected this Unix stream socket, as the kernel recorded it at connect time (SO_PEERCRED on Linux, getpeereid
/// elsewhere). Unknown when the kernel does not say. The pid is left alone: it may name another process by now.
Peer readPeerCredentials(int descriptor);

} // namespace meridal
