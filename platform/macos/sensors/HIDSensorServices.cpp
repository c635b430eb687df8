// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/sensors/MacAdapters.h"

#include "base/SlowWork.h"
#include "platform/formats/AskedAside.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/SystemCallback.h"

#include <algorithm>
#include <array>
#include <utility>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hidsystem/IOHIDEventSystemClient.h>
#include <IOKit/hidsystem/IOHIDServiceClient.h>
#include <cstdint>

// The part of the HID event system that has no public header. The public way to a client gives one that has properties
// and no events.

using IOHIDEventRef = struct __IOHIDEvent*;

// NOLINTBEGIN(readability-identifier-naming): the system's own names
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
// NOLINTEND(readability-identifier-naming)

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

/// A client of the event system that is kept for the services of one question. It is not scheduled on any loop or queue, so it
/// may not hear of services that come: now and then it gives way to another. On one thread at a time.
class EventClient {
public:
    explicit EventClient(const SensorServiceQuery& query) : query_(query) { }

    std::vector<SensorServiceReading> read()
    {
        constexpr int mostReadings = 30; // a minute's
        std::vector<SensorServiceReading> readings;
        if (!client_ || readings_++ >= mostReadings) {
            open();
        }
        const CFRef<CFArrayRef> services(client_ ? IOHIDEventSystemClientCopyServices(client_.get()) : nullptr);
        const CFIndex count = services ? CFArrayGetCount(services.get()) : 0;
        for (CFIndex i = 0; i < count; ++i) {
            // Owned by the list. The reference types hide that constness is all they differ in.
            const auto service =
                static_cast<IOHIDServiceClientRef>(const_cast<void*>(CFArrayGetValueAtIndex(services.get(), i)));
            readings.push_back(readService(service, query_));
        }
        return readings;
    }

private:
    void open()
    {
        readings_ = 0;
        client_ = CFRef<IOHIDEventSystemClientRef>(IOHIDEventSystemClientCreate(kCFAllocatorDefault));
        const CFRef<CFDictionaryRef> matching = matchingOf(query_);
        if (client_ && matching) {
            IOHIDEventSystemClientSetMatching(client_.get(), matching.get());
        } else {
            client_ = {}; // one that matches all would ask keyboards and mice
        }
    }

    SensorServiceQuery query_;
    CFRef<IOHIDEventSystemClientRef> client_;
    int readings_ = 0;
};

/// Each question has its client; all are asked on one thread beside the main one, as drivers may take their time. A thread for
/// each would help little: one question, for temperatures, goes to most drivers.
class HIDSensorServices final : public SensorServices {
public:
    explicit HIDSensorServices(std::shared_ptr<SlowWork> work) : work_(std::move(work)) { }

    std::vector<SensorServiceReading> read(const SensorServiceQuery& query) override;
    bool isLate() const override { return isLate_; }

private:
    using Readings = AskedAside<std::vector<SensorServiceReading>>;

    std::shared_ptr<SlowWork> work_;
    std::vector<std::pair<SensorServiceQuery, Readings>> asked_;
    bool isLate_ = false;
};

} // namespace

std::vector<SensorServiceReading> HIDSensorServices::read(const SensorServiceQuery& query)
{
    auto known = std::find_if(asked_.begin(), asked_.end(), [&](const auto& each) { return each.first == query; });
    if (known == asked_.end()) {
        const auto client = std::make_shared<EventClient>(query);
        known = asked_.insert(asked_.end(), {query, Readings(work_, [client] {
                                                 std::vector<SensorServiceReading> readings;
                                                 runCallback([&] { readings = client->read(); });
                                                 return readings;
                                             })});
    }
    auto answer = known->second.ask();
    isLate_ = !answer;
    return std::move(answer).value_or(std::vector<SensorServiceReading>());
}

std::unique_ptr<SensorServices> makeHIDSensorServices(std::shared_ptr<SlowWork> work)
{
    return std::make_unique<HIDSensorServices>(std::move(work));
}

} // namespace meridal
