// SPDX-License-Identifier: Apache-2.0
#include "platform/ZAVVersions.h"

#include "platform/Context.h"
#include "platform/host/Host.h"

namespace meridal {

ZAVVersions::ZAVVersions(const MachineInfo& machine)
    : release_(machine.systemRelease())
    , lion_(lion())
    , mountainLion_(mountainLion())
    , mavericks_(mavericks())
    , yosemite_(yosemite())
    , elCapitan_(elCapitan())
    , sierra_(sierra())
    , highSierra_(highSierra())
    , mojave_(mojave())
    , catalina_(catalina())
    , bigSur_(bigSur())
{
}

const ZAVVersions& ZAVVersions::sharedVersions()
{
    static const ZAVVersions instance(*Context::shared().host.machine);
    return instance;
}

bool ZAVVersions::isLater(int minorOfTen) const
{
    return release_.major == 10 ? release_.minor > minorOfTen : release_.major > 10;
}

} // namespace meridal
