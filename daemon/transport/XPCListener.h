// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Log.h"
#include "wire/Link.h"

#include <memory>
#include <string>

#ifdef __OBJC__
@class NSXPCListener;
#endif

namespace meridal {

/// Carries the protocol over a mach service that launchd advertises for this process. Delegate and log outlive it.
class XPCListener final : public Listener {
public:
    XPCListener(const std::string& machService, ListenerDelegate& delegate, Log& log);
#ifdef __OBJC__
    /// Over a listener that is not resumed yet, such as an anonymous one.
    XPCListener(NSXPCListener* listener, ListenerDelegate& delegate, Log& log);
#endif
    /// Turns away new clients, ends the open connections and waits a moment for their last calls to return: two seconds
    /// at the most, since such a call may be waiting for the very queue that destroys this.
    ~XPCListener() override;
    XPCListener(const XPCListener&) = delete;
    XPCListener& operator=(const XPCListener&) = delete;

    ListenerStatistics statistics() const override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace meridal
