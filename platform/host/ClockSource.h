// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Who keeps the wall clock right. Main queue only. Linux: adjtimex(2), or systemd-timedated. macOS: ntp_gettime(2).
class ClockSource {
public:
    virtual ~ClockSource() = default;
    /// Whether the kernel counts the wall clock as synchronised to a time source now; false, too, where it does not tell.
    /// Costs little and waits for nobody: where another process has to be asked, a later question has the answer.
    virtual bool isSynchronised() = 0;
};

} // namespace meridal
