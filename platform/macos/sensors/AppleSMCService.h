#pragma once

#include "platform/host/SMCService.h"

namespace meridal {

/// The user client of the AppleSMC driver, which Intel and Apple-silicon Macs both have. Reading is for everybody, writing
/// for root.
class AppleSMCService final : public SMCService {
public:
    Handle findService(std::string_view serviceClass) override;
    void releaseService(Handle service) override;
    IOStatus openService(Handle service, std::uint32_t type, Handle& connection) override;
    IOStatus closeService(Handle connection) override;
    IOStatus callScalarMethod(Handle connection, std::uint32_t selector) override;
    IOStatus callStructMethod(
        Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output) override;
};

} // namespace meridal
