// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

class MachineInfo;

/// What the process figures depend on in the system's release. Fixed for the life of a collector.
struct ReleaseRules {
    bool hasResponsibleProcess = true; ///< 10.9: helpers name their app, and shells keep what they start to themselves
    bool usesUsageV3 = true;           ///< 10.12: the newer usage record, with CPU time in units of the time base
    bool footprintFromKernel = true;   ///< 10.14: memory is the footprint that the kernel itself counts
    bool listsFootprint = true;        ///< 10.9: usage records carry a footprint, so there is a list of it

    static ReleaseRules of(const MachineInfo& machine);
};

} // namespace meridal
