// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include <sys/timex.h>

namespace meridal {

namespace {

constexpr long largestError = 16'000'000; ///< µs: nine hours without a correction, or a leap of as much

class MacClockSource final : public ClockSource {
public:
    bool isSynchronised() override;
};

} // namespace

bool MacClockSource::isSynchronised()
{
    ntptimeval clock = {};
    const int state = ::ntp_gettime(&clock);
    return state >= 0 && state != TIME_ERROR && clock.maxerror < largestError;
}

std::unique_ptr<ClockSource> makeMacClockSource() { return std::make_unique<MacClockSource>(); }

} // namespace meridal
