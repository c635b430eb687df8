// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ReleaseRules.h"

#include "platform/ZAVVersions.h"

namespace meridal {

ReleaseRules ReleaseRules::of(const MachineInfo& machine)
{
    const ZAVVersions versions(machine);
    return {
        .hasResponsibleProcess = versions.isMavericks(),
        .usesUsageV3 = versions.isSierra(),
        .footprintFromKernel = versions.isMojave(),
        .listsFootprint = versions.isMavericks(),
    };
}

} // namespace meridal
