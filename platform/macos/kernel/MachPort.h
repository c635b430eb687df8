// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mach/mach.h>

namespace meridal {

/// A right to a Mach port, given back when it goes out of scope: a right that is kept leaks for the life of the daemon.
class MachPort {
public:
    MachPort() = default;
    explicit MachPort(mach_port_t name) : name_(name) { }
    ~MachPort()
    {
        if (MACH_PORT_VALID(name_)) {
            mach_port_deallocate(mach_task_self(), name_);
        }
    }
    MachPort(const MachPort&) = delete;
    MachPort& operator=(const MachPort&) = delete;

    mach_port_t name() const { return name_; }
    /// For a call that fills in the name. Once only.
    mach_port_t* receive() { return &name_; }

private:
    mach_port_t name_ = MACH_PORT_NULL;
};

} // namespace meridal
