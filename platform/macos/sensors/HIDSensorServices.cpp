// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/sensors/MacAdapters.h"

#include "platform/macos/kernel/CFRef.h"

#include <array>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hidsystem/IOHIDEventSystemClient.h>
#include <IOKit/hidsystem/IOHIDServiceClient.h>
#include <cstdint>

// The part of the HID event system that has no public header. The public way to a client gives one that has properties
// and no events.

using IOHIDEventRef = struct __IOHIDEvent*;

extern "C" {
/// A client that may ask services for events; to be released. Null when there is no event system.
IOHIDEventSystemClientRef IOHIDEventSystemClientCreate(CFAllocatorRef allocator);
/// Restricts the services to those with certain properties.
int IOHIDEventSystemClientSetMatching(IOHIDEventSystemClientRef client, CFDictionaryRef matching);
/// The service's latest event of a type, to be released; null when it has none.
IOHIDEventRef IOHIDServiceClientCopyEvent(
    IOHIDServiceClientRef service, std::int64_t type, std::int32_t options, std::int64_t timestamp);
double IOHIDEventGetFloatValue(IOHIDEventRef event, std::int32_t field);
}

namespace meridal {

namespace {

CFRef<CFNumberRef> number(std::uint32_t value)
{
    const auto wide = static_cast<std::int64_t>(value);
    return CFRef<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &wide));
}

/// What services are matched by: {"PrimaryUsagePage": page, "PrimaryUsage": usage}.
CFRef<CFDictionaryRef> matchingOf(const SensorServiceQuery& query)
{
    const CFRef<CFNumberRef> page = number(query.usagePage);
    const CFRef<CFNumberRef> usage = number(query.usage);
    if (!page || !usage) {
        return {};
    }
    std::array<const void*, 2> keys = {CFSTR("PrimaryUsagePage"), CFSTR("PrimaryUsage")};
    std::array<const void*, 2> values = {page.get(), usage.get()};
    return CFRef<CFDictionaryRef>(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), keys.size(),
        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

SensorServiceReading readService(IOHIDServiceClientRef service, const SensorServiceQuery& query)
{
    SensorServiceReading reading;
    reading.product = textOf(CFRef<CFTypeRef>(IOHIDServiceClientCopyProperty(service, CFSTR("Product"))).get());
    if (!reading.product) {
        return reading; // nobody can name it: its event is not worth a call
    }
    const CFRef<IOHIDEventRef> event(IOHIDServiceClientCopyEvent(service, query.eventType, 0, 0));
    if (event) {
        reading.value = IOHIDEventGetFloatValue(event.get(), static_cast<std::int32_t>(query.field));
    }
    return reading;
}

class HIDSensorServices final : public SensorServices {
public:
    std::vector<SensorServiceReading> read(const SensorServiceQuery& query) override;
};

} // namespace

std::vector<SensorServiceReading> HIDSensorServices::read(const SensorServiceQuery& query)
{
    std::vector<SensorServiceReading> readings;
    const CFRef<IOHIDEventSystemClientRef> client(IOHIDEventSystemClientCreate(kCFAllocatorDefault));
    const CFRef<CFDictionaryRef> matching = matchingOf(query);
    if (!client || !matching) {
        return readings;
    }
    IOHIDEventSystemClientSetMatching(client.get(), matching.get());
    const CFRef<CFArrayRef> services(IOHIDEventSystemClientCopyServices(client.get()));
    const CFIndex count = services ? CFArrayGetCount(services.get()) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        // Owned by the list. The reference types hide that constness is all they differ in.
        const auto service =
            static_cast<IOHIDServiceClientRef>(const_cast<void*>(CFArrayGetValueAtIndex(services.get(), i)));
        readings.push_back(readService(service, query));
    }
    return readings;
}

std::unique_ptr<SensorServices> makeHIDSensorServices() { return std::make_unique<HIDSensorServices>(); }

} // namespace meridal
