// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

namespace meridal {

class SMARTStatCollectorItem;

enum class ReportedAttributes { Failing, All };

/// A disk in full, for clients that show it to people: who it is, how it is, and in words what is wrong with it. What is
/// not known is left out. docs/protocol.md names the entries.
Dictionary describeDisk(const SMARTStatCollectorItem& disk, ReportedAttributes attributes);

} // namespace meridal
