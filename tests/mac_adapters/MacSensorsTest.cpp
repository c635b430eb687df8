// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/MacSensorSource.h"
#include "platform/macos/sensors/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"
#include "tests/support/FakeSMC.h"
#include "tests/support/HandWork.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* smc = R"(
+-o AppleSMC  <class AppleSMC:IOService:IORegistryEntry:OSObject, id 0x100000250, registered, matched, active>
    {
      "smc-version" = "2.40f0"
    }
)";

class MacSensorsTest : public testing::Test {
protected:
    MacSensorsTest()
    {
        keys.setFloat("TC0P", 41.5F);
        mac.registry.clients["AppleSMC"] = [this](std::uint32_t selector, auto input, auto output) {
            SMCParamRecord asked;
            SMCParamRecord answer;
            if (input.size() != sizeof asked || output.size() != sizeof answer) {
                return input.empty() ? KERN_SUCCESS : kIOReturnBadArgument; // the methods that open and close
            }
            std::memcpy(&asked, input.data(), sizeof asked);
            const IOStatus status = keys.callStructMethod(1, selector, asked, answer);
            std::memcpy(output.data(), &answer, sizeof answer);
            return static_cast<kern_return_t>(status);
        };
    }
    std::optional<double> read(MacSensorSource& source) const
    {
        const std::string key = "TC0P";
        return source.read({&key, 1}).front().value;
    }
    std::vector<std::string> products(SensorServices& services)
    {
        std::vector<std::string> products;
        for (const auto& reading : services.read(temperatures)) {
            products.push_back(reading.product.value_or("-"));
        }
        return products;
    }
    std::unique_ptr<SensorServices> makeServices()
    {
        return makeHIDSensorServices(std::make_shared<test::HandWork>(script));
    }
    std::unique_ptr<MacSensorSource> makeSource()
    {
        return std::make_unique<MacSensorSource>(makeAppleSMCService(), makeServices(), SMCOrigin::Own);
    }

    static constexpr SensorServiceQuery temperatures{
        .usagePage = 0xFF00, .usage = 5, .eventType = 15, .field = 15U << 16U};
    test::SimulatedMac mac;
    test::FakeSMCService keys;
    std::shared_ptr<test::HandWork::Script> script = std::make_shared<test::HandWork::Script>();
};

TEST_F(MacSensorsTest, AnSMCIsOpenedWhenItsDriverMatchesAndAgainWhenItComesBack)
{
    const auto source = makeSource();
    EXPECT_EQ(read(*source), std::nullopt);
    mac.registry.plug(smc);
    EXPECT_EQ(read(*source), std::nullopt) << "nobody was told yet";
    mac.ledger.deliver();
    EXPECT_EQ(read(*source), 41.5);
    const int opened = mac.ledger.calls("IOServiceOpen");
    EXPECT_EQ(read(*source), 41.5);
    EXPECT_EQ(mac.ledger.calls("IOServiceOpen"), opened) << "the connection is kept";

    const auto service = makeAppleSMCService();
    EXPECT_TRUE(service->hasCome());
    EXPECT_FALSE(service->hasCome());
    for (int round = 0; round < 2; ++round) {
        mac.registry.unplug("AppleSMC");
        mac.registry.plug(smc);
        mac.ledger.deliver();
        EXPECT_TRUE(service->hasCome()) << "round " << round;
        EXPECT_FALSE(service->hasCome());
    }
}

TEST_F(MacSensorsTest, AnSMCThatTellsNobodyThatItMatchedIsLookedForEachTime)
{
    mac.registry.plug(smc);
    for (const char* call : {"IONotificationPortCreate", "IOServiceMatching", "IOServiceAddMatchingNotification"}) {
        mac.ledger.fail(call);
        const auto service = makeAppleSMCService();
        EXPECT_TRUE(service->hasCome() && service->hasCome()) << call;
        const SMCService::Handle found = service->findService("AppleSMC");
        EXPECT_NE(found, 0U);
        SMCService::Handle connection = 0;
        mac.ledger.fail("IOServiceOpen", kIOReturnNotPrivileged);
        EXPECT_EQ(service->openService(found, 1, connection), IOStatus::NotPrivileged);
        EXPECT_EQ(connection, 0U);
        service->releaseService(found);
        service->releaseService(0);
    }
    EXPECT_EQ(makeAppleSMCService()->findService("AppleSMCOfLater"), 0U);
}

TEST_F(MacSensorsTest, ServicesOfAQuestionWithWhatTheyMeasure)
{
    using Service = test::EventSystem::Service;
    mac.events.services = {Service{.page = 0xFF00, .usage = 5, .product = "PMU tdie1", .eventType = 15, .value = 38.25},
        Service{.page = 0xFF00, .usage = 5, .eventType = 15, .value = 99.0}, // which nobody can name
        Service{.page = 0xFF00, .usage = 5, .product = "gas gauge battery", .eventType = 25, .value = 1.0},
        Service{.page = 1, .usage = 6, .product = "Keyboard"}};
    const auto services = makeServices();
    const auto readings = services->read(temperatures);
    ASSERT_EQ(readings.size(), 3U);
    EXPECT_EQ(readings[0].product, "PMU tdie1");
    EXPECT_EQ(readings[0].value, 38.25);
    EXPECT_EQ(readings[1].value, std::nullopt) << "its event is not worth a call";
    EXPECT_EQ(readings[2].value, std::nullopt) << "it has none of that type";
    EXPECT_THAT(services->read({.usagePage = 0xFF08, .usage = 2, .eventType = 25, .field = 25U << 16U}), IsEmpty());
    EXPECT_EQ(mac.ledger.calls("IOHIDEventSystemClientCreate"), 2) << "a client for each question";
}

TEST_F(MacSensorsTest, AClientOfTheEventSystemIsKeptForAWhileAndWithoutOneNothingIsRead)
{
    mac.events.services = {{.page = 0xFF00, .usage = 5, .product = "PMU tdie1", .eventType = 15, .value = 38.0}};
    mac.events.isThere = false;
    const auto services = makeServices();
    EXPECT_THAT(products(*services), IsEmpty());
    mac.events.isThere = true;
    const int before = mac.ledger.calls("IOHIDEventSystemClientCreate");
    for (int reading = 0; reading < 90; ++reading) {
        ASSERT_THAT(products(*services), ElementsAre("PMU tdie1")) << reading;
    }
    const int created = mac.ledger.calls("IOHIDEventSystemClientCreate") - before;
    EXPECT_GT(created, 1) << "one that is never replaced may not hear of services that come";
    EXPECT_LT(created, 5) << "each costs its drivers a round";
}

TEST_F(MacSensorsTest, ADriverThatHangsIsLateAndGivesBackWhatItHasWhenItComes)
{
    mac.events.services = {{.page = 0xFF00, .usage = 5, .product = "PMU tdie1", .eventType = 15, .value = 38.0}};
    auto services = makeServices();
    EXPECT_THAT(products(*services), ElementsAre("PMU tdie1"));
    script->hang = 0;
    EXPECT_THAT(products(*services), ElementsAre("PMU tdie1")) << "what it said before";
    EXPECT_FALSE(services->isLate());
    EXPECT_THAT(products(*services), IsEmpty());
    EXPECT_TRUE(services->isLate());
    services.reset(); // while the driver still has the question
    script->hanging.front()();
    script->hanging.clear();
}

} // namespace
} // namespace meridal
