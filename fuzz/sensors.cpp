// SPDX-License-Identifier: Apache-2.0
// What clients say of sensors, and what an SMC says of its keys: the first bytes are a key's type, size and data, the rest
// is the JSON of configurations, which a whole collector then answers on a small SMC of such keys.

#include "base/Value.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "history/HistoryCatalogue.h"
#include "platform/PlatformController.h"
#include "platform/formats/MacSensorSource.h"
#include "tests/support/FakeHost.h"
#include "tests/support/FakeSMC.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

using namespace meridal;

namespace {

constexpr std::size_t keyBytes = 1 + 4 + 32;

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

void convert(const std::uint8_t* data)
{
    SMCKeyValue value;
    value.dataSize = data[0] & 0x3FU;
    std::memcpy(value.dataType.data(), data + 1, 4);
    std::copy_n(data + 5, 32, value.bytes.begin());
    for (const SMCOrigin origin : {SMCOrigin::Own, SMCOrigin::Emulated}) {
        const float figure = convertSMCData(value, origin);
        const bool isFloat = std::memcmp(value.dataType.data(), "flt ", 4) == 0;
        require(isFloat || (std::isfinite(figure) && figure >= -32768 && figure <= 4294967296.0F));
    }
}

void answer(const Value& given, const std::uint8_t* data)
{
    test::FakeMachine machine;
    const bool isEmulated = (data[0] & 0x40U) != 0;
    machine.machine().service = isEmulated ? "FakeSMC" : "";
    const std::string type(reinterpret_cast<const char*>(data) + 1, 4);
    auto smc = std::make_unique<test::FakeSMCService>();
    for (const char* key : {"TC0P", "PC0C", "VC0C", "F0Ac", "F0ID", "F0Mx", "FNum"}) {
        smc->set(key, type, {data + 5, data + 5 + std::min(data[0] & 0x3F, 32)});
    }
    auto services = std::make_unique<test::FakeSensorServices>();
    if ((data[0] & 0x80U) == 0) {
        services->services[{0xFF00, 5}] = {{std::string(type), 40.0}, {"TC0P", std::nullopt}};
    }
    machine.host.sensors = std::make_unique<MacSensorSource>(
        std::move(smc), std::move(services), isEmulated ? SMCOrigin::Emulated : SMCOrigin::Own);
    const PlatformController platform(machine.context);
    SensorsStatCollectorMac collector(machine.context, platform);
    Value electric = collector.supportedElectricSensors(given);
    collector.nameForAll(electric, SensorRequest::Sensors);
    collector.averagePower(electric);
    const ClientSensors::Owner user{.uid = 1000, .client = &machine};
    collector.nameForClient(user, electric, SensorRequest::Sensors);
    collector.nameForAll(collector.supportedFans(given), SensorRequest::Fans);
    collector.nameForAll(collector.supportedArmSensors(given), SensorRequest::Services);
    collector.nameForClient(user, collector.supportedArmSensors(given), SensorRequest::Services);
    if (given.is_array()) {
        for (const Value& configuration : given) {
            require(std::isfinite(collector.valueForConfig(configuration)));
            require(std::isfinite(collector.valueForConfig(configuration, PowerDetail::Averaged)));
        }
    }
    collector.begin();
    machine.runtime.advance(5);
    for (const auto& item : collector.sensorsFor(user.uid)) {
        require(std::isfinite(item->value()) && item->percentage() >= 0 && item->percentage() <= 100);
    }
    collector.keepForAll(user);
    require(collector.sensorsFor(user.uid).size() == collector.sensors().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < keyBytes) {
        return 0;
    }
    convert(data);
    const std::string_view text(reinterpret_cast<const char*>(data) + keyBytes, size - keyBytes);
    if (const auto given = parseUntrusted(text)) {
        answer(*given, data);
    }
    return 0;
}
