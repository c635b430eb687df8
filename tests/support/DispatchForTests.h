// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/macos/kernel/DispatchRuntime.h"

#ifndef __APPLE__
#include <poll.h>

#include <chrono>

extern "C" {
// What the library offers run loops that are to serve its main queue. The descriptor can be read while tasks wait.
int _dispatch_get_main_queue_handle_4CF(void);
void _dispatch_main_queue_callback_4CF(void*);
}
#endif

namespace meridal {

#ifdef __APPLE__
inline std::unique_ptr<DispatchGround> makeGroundForTests() { return makeRunLoopGround(); }
#else
/// The main dispatch queue where there are no run loops. As theirs, a turn runs all that waits, whatever leave() says.
class PolledGround final : public DispatchGround {
public:
    void serve() override
    {
        for (left_ = false; !left_;) {
            pollfd waiting{.fd = _dispatch_get_main_queue_handle_4CF(), .events = POLLIN, .revents = 0};
            if (::poll(&waiting, 1, -1) > 0) {
                _dispatch_main_queue_callback_4CF(nullptr);
            }
        }
    }
    void leave() override { left_ = true; }
    void perform(const Task& task) const override { task(); }
    double continuousTime() const override { return uptime(); }
    double uptime() const override
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

private:
    bool left_ = false; // main thread only
};

inline std::unique_ptr<DispatchGround> makeGroundForTests() { return std::make_unique<PolledGround>(); }
#endif

} // namespace meridal
