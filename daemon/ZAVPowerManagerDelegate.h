// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Somebody who has to do with the machine's sleep. Called on the main queue; not owned by the manager.
class ZAVPowerManagerDelegate {
public:
    virtual ~ZAVPowerManagerDelegate() = default;
    /// The machine sleeps as soon as every delegate has returned and what they delayed has ended.
    virtual void powerManagerWillSleep() { }
    virtual void powerManagerDidWake() { }
};

} // namespace meridal
