#pragma once

#include "platform/host/ClockSource.h"

namespace meridal {

/// The kernel's state of the clock and its bound of the error. A clock that is set by hand keeps the state, but the
/// bound grows by 500 µs for each second that the clock passes, or leaps.
class MacClockSource final : public ClockSource {
public:
    bool isSynchronised() override;
};

} // namespace meridal
