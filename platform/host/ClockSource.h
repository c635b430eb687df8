// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Who keeps the wall clock right. Linux: adjtimex(2). macOS: ntp_gettime(2).
class ClockSource {
public:
    virtual ~ClockSource() = default;
    /// Whether the kernel counts the wall clock as synchronised to a time source now; false, too, where it does not tell.
    virtual bool isSynchronised() = 0;
};

} // namespace meridal
