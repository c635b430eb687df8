// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <string>

namespace meridal::test {

/// Puts the calling thread into a fresh network of its own, for as long as it lives: root only.
class NetworkNamespace {
public:
    NetworkNamespace()
        : before_(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC))
        , entered_(before_ && ::unshare(CLONE_NEWNET) == 0)
    {
    }
    ~NetworkNamespace()
    {
        if (entered_ && ::setns(before_.get(), CLONE_NEWNET) != 0) {
            std::abort(); // every later test would run in here
        }
    }
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;

    bool entered() const { return entered_; }
    /// Runs "ip" with these words; false when that fails.
    bool ip(const std::string& words) const { return std::system(("ip " + words).c_str()) == 0; }

private:
    Descriptor before_;
    bool entered_ = false;
};

} // namespace meridal::test
