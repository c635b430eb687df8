#pragma once

#include "platform/host/DisplayInfo.h"
#include "platform/host/Limitations.h"

namespace meridal {

/// The frame rate from the window server's performance data. A private interface, looked up by name, that answers only
/// a process of a login session: a daemon outside of one gets nothing, which `limitations` then says.
class WindowServerDisplayInfo final : public DisplayInfo {
public:
    explicit WindowServerDisplayInfo(Limitations& limitations) : limitations_(limitations) { }
    std::optional<double> frameRate() override;

private:
    Limitations& limitations_;
};

} // namespace meridal
