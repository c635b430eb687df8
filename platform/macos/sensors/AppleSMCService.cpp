// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/sensors/MacAdapters.h"

#include "platform/macos/kernel/IORegistryObject.h"

#include <IOKit/IOKitLib.h>
#include <dispatch/dispatch.h>
#include <mach/mach.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

namespace meridal {

namespace {

// The seam's handles and numbers are those of the system, passed through.
static_assert(std::is_same_v<io_connect_t, SMCService::Handle>);
static_assert(std::is_same_v<io_service_t, SMCService::Handle>);
static_assert(static_cast<std::uint32_t>(IOStatus::Error) == static_cast<std::uint32_t>(kIOReturnError));
static_assert(
    static_cast<std::uint32_t>(IOStatus::NotPrivileged) == static_cast<std::uint32_t>(kIOReturnNotPrivileged));
static_assert(
    static_cast<std::uint32_t>(IOStatus::InternalError) == static_cast<std::uint32_t>(kIOReturnInternalError));
static_assert(static_cast<std::uint32_t>(IOStatus::NotOpen) == static_cast<std::uint32_t>(kIOReturnNotOpen));
static_assert(static_cast<std::uint32_t>(IOStatus::NotFound) == static_cast<std::uint32_t>(kIOReturnNotFound));

IOStatus statusOf(kern_return_t result) { return static_cast<IOStatus>(static_cast<std::uint32_t>(result)); }

class AppleSMCService final : public SMCService {
public:
    AppleSMCService();
    ~AppleSMCService() override;
    AppleSMCService(const AppleSMCService&) = delete;
    AppleSMCService& operator=(const AppleSMCService&) = delete;

    bool hasCome() override { return std::exchange(hasCome_, !isTold_); }
    Handle findService(std::string_view serviceClass) override;
    void releaseService(Handle service) override;
    IOStatus openService(Handle service, std::uint32_t type, Handle& connection) override;
    IOStatus closeService(Handle connection) override;
    IOStatus callScalarMethod(Handle connection, std::uint32_t selector) override;
    IOStatus callStructMethod(
        Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output) override;

private:
    static void matched(void* self, io_iterator_t iterator);

    IONotificationPortRef port_ = IONotificationPortCreate(MACH_PORT_NULL);
    IOObjectOwner iterator_; ///< of the services that matched; tells of the next one when it has been drained
    bool isTold_ = false;    ///< of those that come; else each question is answered by yes
    bool hasCome_ = true;
};

} // namespace

AppleSMCService::AppleSMCService()
{
    CFMutableDictionaryRef matching = port_ ? IOServiceMatching("AppleSMC") : nullptr; // consumed
    if (!matching) {
        return;
    }
    IONotificationPortSetDispatchQueue(port_, dispatch_get_main_queue());
    if (IOServiceAddMatchingNotification(
            port_, kIOFirstMatchNotification, matching, &AppleSMCService::matched, this, iterator_.receive())
        == KERN_SUCCESS) {
        isTold_ = true;
        matched(this, iterator_.get());
    }
}

AppleSMCService::~AppleSMCService()
{
    if (port_) {
        IONotificationPortDestroy(port_);
    }
}

void AppleSMCService::matched(void* self, io_iterator_t iterator)
{
    while (IOObjectOwner(IOIteratorNext(iterator))) { }
    static_cast<AppleSMCService*>(self)->hasCome_ = true;
}

SMCService::Handle AppleSMCService::findService(std::string_view serviceClass)
{
    // The look-up consumes the dictionary. The null port stands for the default one, whose constant changed its name.
    CFMutableDictionaryRef matching = IOServiceMatching(std::string(serviceClass).c_str());
    return matching ? IOServiceGetMatchingService(MACH_PORT_NULL, matching) : IO_OBJECT_NULL;
}

void AppleSMCService::releaseService(Handle service)
{
    if (service != IO_OBJECT_NULL) {
        IOObjectRelease(service);
    }
}

IOStatus AppleSMCService::openService(Handle service, std::uint32_t type, Handle& connection)
{
    io_connect_t opened = IO_OBJECT_NULL;
    const kern_return_t result = IOServiceOpen(service, mach_task_self(), type, &opened);
    if (result == KERN_SUCCESS) {
        connection = opened;
    }
    return statusOf(result);
}

IOStatus AppleSMCService::closeService(Handle connection) { return statusOf(IOServiceClose(connection)); }

IOStatus AppleSMCService::callScalarMethod(Handle connection, std::uint32_t selector)
{
    return statusOf(IOConnectCallScalarMethod(connection, selector, nullptr, 0, nullptr, nullptr));
}

IOStatus AppleSMCService::callStructMethod(
    Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output)
{
    std::size_t size = sizeof output;
    return statusOf(IOConnectCallStructMethod(connection, selector, &input, sizeof input, &output, &size));
}

std::unique_ptr<SMCService> makeAppleSMCService() { return std::make_unique<AppleSMCService>(); }

} // namespace meridal
