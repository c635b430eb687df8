// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SMCParamRecord.h"

#include <cstdint>
#include <string_view>

namespace meridal {

/// How a call to a driver ended, by macOS's numbers.
enum class IOStatus : std::uint32_t {
    Success = 0,
    Error = 0xE00002BC,
    NotPrivileged = 0xE00002C1,
    InternalError = 0xE00002C9,
    NotOpen = 0xE00002CD,
    NotFound = 0xE00002F0,
};

/// The driver of the System Management Controller (the AppleSMC user client), as a client outside the kernel talks to it.
/// Handles are numbers other than 0. One queue at a time.
class SMCService {
public:
    using Handle = std::uint32_t;

    virtual ~SMCService() = default;

    /// Whether the driver may have come since the last question: so at the first one, and after each match of its class.
    virtual bool hasCome() = 0;
    /// The first service of a class ("AppleSMC"), to be given back with releaseService(); 0 when there is none.
    virtual Handle findService(std::string_view serviceClass) = 0;
    virtual void releaseService(Handle service) = 0;
    /// Opens a connection of a type. The handle stays 0 on failure.
    virtual IOStatus openService(Handle service, std::uint32_t type, Handle& connection) = 0;
    virtual IOStatus closeService(Handle connection) = 0;
    /// A method without arguments: 0 opens the user client, 1 closes it.
    virtual IOStatus callScalarMethod(Handle connection, std::uint32_t selector) = 0;
    /// A method that takes a record and gives one; 2 carries every command. On failure the output is as it was.
    virtual IOStatus callStructMethod(
        Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output) = 0;
};

} // namespace meridal
