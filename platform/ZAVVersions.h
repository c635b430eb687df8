// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineInfo.h"

namespace meridal {

/// Which release of the operating system runs. Every test means "this release or later", so all of them are true from
/// major version 11 on. Read once; immutable.
class ZAVVersions {
public:
    explicit ZAVVersions(const MachineInfo& machine);

    /// The instance of this process, on Context::shared().
    static const ZAVVersions& sharedVersions();

    int major() const { return release_.major; }
    int minor() const { return release_.minor; }
    int bugfix() const { return release_.bugfix; }

    bool isLion() const { return lion_; }                 ///< 10.7
    bool isMountainLion() const { return mountainLion_; } ///< 10.8
    bool isMavericks() const { return mavericks_; }       ///< 10.9
    bool isYosemite() const { return yosemite_; }         ///< 10.10
    bool isElCapitan() const { return elCapitan_; }       ///< 10.11
    bool isSierra() const { return sierra_; }             ///< 10.12
    bool isHighSierra() const { return highSierra_; }     ///< 10.13
    bool isMojave() const { return mojave_; }             ///< 10.14
    bool isCatalina() const { return catalina_; }         ///< 10.15
    bool isBigSur() const { return bigSur_; }             ///< 10.16, which calls itself 11.0 to new programs
    /// Whether this is the build for a subscription store. The daemon has none.
    bool isSetApp() const { return false; }

    /// The tests themselves, as asked of the release that was read.
    bool lion() const { return isLater(6); }
    bool mountainLion() const { return isLater(7); }
    bool mavericks() const { return isLater(8); }
    bool yosemite() const { return isLater(9); }
    bool elCapitan() const { return isLater(10); }
    bool sierra() const { return isLater(11); }
    bool highSierra() const { return isLater(12); }
    bool mojave() const { return isLater(13); }
    bool catalina() const { return isLater(14); }
    bool bigSur() const { return isLater(15); }

private:
    bool isLater(int minorOfTen) const;

    SystemRelease release_;
    bool lion_ = false;
    bool mountainLion_ = false;
    bool mavericks_ = false;
    bool yosemite_ = false;
    bool elCapitan_ = false;
    bool sierra_ = false;
    bool highSierra_ = false;
    bool mojave_ = false;
    bool catalina_ = false;
    bool bigSur_ = false;
};

} // namespace meridal
