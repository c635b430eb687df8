// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// Where another program of the house is: beside ours, or in libexec/meridal. Empty when it is in neither.
std::filesystem::path findHelperProgram(const std::string& name);

/// Another program as our child, at the other end of a socket (SOCK_SEQPACKET). Nothing of this process but its environment
/// goes with it. A device that hangs holds the caller of its ioctl in the kernel beyond the reach of any signal, and with it
/// the end of that process: so it is not this process that calls. Ends with the object, or with us.
class HelperProgram {
public:
    HelperProgram() = default;
    ~HelperProgram() { stop(); }
    HelperProgram(const HelperProgram&) = delete;
    HelperProgram& operator=(const HelperProgram&) = delete;

    /// Runs it with these words behind its name.
    bool start(const std::filesystem::path& program, std::vector<std::string> words);
    bool isRunning() const { return child_ > 0; }
    int channel() const { return channel_.get(); }
    void stop();

private:
    Descriptor channel_;
    int child_ = -1;
};

/// Sends a message and waits for the other end's, however long that takes; the wait can be killed. The size of the answer,
/// which may be more than there was room for; absent when the other end has gone.
std::optional<std::size_t> exchange(
    int channel, const void* question, std::size_t questionSize, void* answer, std::size_t room);

} // namespace meridal
