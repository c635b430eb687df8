// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/MacSensorSource.h"

#include "tests/support/FakeSMC.h"

#include <gmock/gmock.h>

#include <limits>

namespace meridal {
namespace {

using testing::ElementsAre;

constexpr SensorServiceQuery temperatures{.usagePage = 65280, .usage = 5, .eventType = 15, .field = 15U << 16U};

/// A Mac's drivers with what a test says of them.
struct Mac {
    explicit Mac(SMCOrigin origin = SMCOrigin::Own)
    {
        auto driver = std::make_unique<test::FakeSMCService>();
        auto events = std::make_unique<test::FakeSensorServices>();
        smc = driver.get();
        services = events.get();
        source = std::make_unique<MacSensorSource>(std::move(driver), std::move(events), origin);
    }
    std::vector<std::string> keys() const
    {
        std::vector<std::string> keys;
        for (const SensorRecord& record : source->sensors()) {
            keys.push_back(record.key);
        }
        return keys;
    }
    SensorReading read(const std::string& key) const { return source->read({&key, 1}).front(); }
    std::vector<SensorServiceReading>& hid() const { return services->services[{65280, 5}]; }

    test::FakeSMCService* smc;
    test::FakeSensorServices* services;
    std::unique_ptr<MacSensorSource> source;
};

TEST(MacSensorSource, ServicesAndTheirAverages)
{
    const Mac mac;
    mac.smc->setFloat("TC0P", 40); // which services leave to clients that know it
    mac.hid() = {{"pACC MTR Temp Sensor1", 40.0}, {std::nullopt, 99.0}, {"pACC MTR Temp Sensor2", 50.0},
        {"eACC \xFF", std::nullopt}, {"gas gauge battery", 30.0}, {"gas gauge battery", 31.0}, {"TC0P", 12.0},
        {"", 5.0}, {"hot", std::numeric_limits<double>::infinity()}};
    ASSERT_THAT(mac.keys(),
        ElementsAre("HID/pACC MTR Temp Sensor1", "HID/pACC MTR Temp Sensor2", "HID/gas gauge battery", "HID/TC0P",
            "HID/AS_PERF_AVG"))
        << "an average of nothing is none";
    EXPECT_EQ(mac.services->asked.back(), temperatures);
    EXPECT_EQ(mac.source->sensors()[4],
        (SensorRecord{.key = "HID/AS_PERF_AVG",
            .chip = "HID",
            .channel = "AS_PERF_AVG",
            .label = "Performance cores",
            .isNameless = true,
            .isMean = true}));

    const auto asked = mac.services->asked.size();
    const std::vector<std::string> keys = {
        "HID/AS_PERF_AVG", "TC0P", "HID/TC0P", "HID/gas gauge battery", "HID/AS_EFF_AVG", "HID/gone", "TXXX"};
    EXPECT_THAT(mac.source->read(keys),
        ElementsAre(SensorReading{true, 45}, SensorReading{true, 40}, SensorReading{true, 12}, SensorReading{true, 30},
            SensorReading{}, SensorReading{}, SensorReading{}));
    EXPECT_EQ(mac.services->asked.size(), asked + 1) << "one round of events for all";

    const std::uint64_t generation = mac.source->generation();
    mac.hid() = {{"eACC", 35.0}, {"pACC MTR Temp Sensor1", std::nullopt}};
    EXPECT_EQ(mac.read("HID/pACC MTR Temp Sensor1"), (SensorReading{true, std::nullopt})) << "for the moment";
    EXPECT_NE(mac.source->generation(), generation) << "a service has come";
    EXPECT_EQ(mac.read("HID/AS_EFF_AVG"), (SensorReading{true, 35}));

    mac.services->services[{0xFF08, 3}] = {{"VDD", 12'000.0}};
    EXPECT_EQ(SensorsARMController(*mac.services).sensors(0xFF08, 3, 25)[0].value, 12.0) << "thousandths";
}

TEST(MacSensorSource, WithoutServicesKeysThatLookLikeSensors)
{
    const Mac mac;
    mac.smc->present = false;
    const std::uint64_t none = mac.source->generation();
    EXPECT_THAT(mac.source->sensors(), testing::IsEmpty());
    EXPECT_EQ(mac.read("TC0P"), SensorReading());
    mac.smc->arrive();
    mac.smc->set("TC0P", "sp78", {0x29, 0x80});
    mac.smc->set("TCNT", "ui8 ", {5});
    mac.smc->setFloat("VC0C", 1.048F);
    mac.smc->setFloat("TZ0C", -120); // not fitted, as the last
    mac.smc->setFloat("BTMP", 30);
    mac.smc->setFloat("IC0C", 3);
    mac.smc->keys["IC0C"].readFails = true;
    mac.smc->setFloat("PC0C", 0);
    mac.smc->set("FNum", "ui8 ", {2});
    EXPECT_THAT(mac.keys(), ElementsAre("TC0P", "VC0C", "F0Ac", "F1Ac"));
    EXPECT_NE(mac.source->generation(), none);
    const SensorRecord fan = mac.source->sensors()[3];
    EXPECT_EQ(fan.label, "Fan 2");
    EXPECT_TRUE(fan.isNameless && fan.kind == SensorKind::Fan);
    EXPECT_EQ(mac.source->sensors()[1].kind, SensorKind::Voltage);
    EXPECT_EQ(mac.read("TC0P"), (SensorReading{true, 41.5}));
    EXPECT_EQ(mac.read("VC0C").value, 1.048) << "and not 1.0479999780654907";
    EXPECT_EQ(mac.read("IC0C"), (SensorReading{true, std::nullopt}));
    mac.smc->setFloat("PC0C", std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(mac.read("PC0C"), (SensorReading{true, std::nullopt}));
    for (const float count : {-1.0F, 1e30F, std::numeric_limits<float>::quiet_NaN()}) {
        const Mac odd;
        odd.smc->setFloat("FNum", count);
        EXPECT_EQ(odd.keys().size(), count > 0 ? 16U : 0U) << count;
    }
}

TEST(MacSensorSource, AnSMCThatComesLateOrIsBusyIsLookedAtWhenItCan)
{
    const Mac mac;
    mac.hid() = {{"pACC", 40.0}};
    mac.smc->present = false;
    mac.smc->setFloat("PSTR", 7.5F);
    mac.smc->setFloat("PDTR", 0); // on battery
    mac.smc->setFloat("TH0x", 31);
    mac.smc->setFloat("TW0P", -127); // not fitted
    mac.smc->setFloat("TC0P", 40);
    mac.smc->set("FNum", "ui8 ", {1});
    ASSERT_THAT(mac.keys(), ElementsAre("HID/pACC", "HID/AS_PERF_AVG"));
    for (int i = 0; i < 5; ++i) {
        mac.source->generation();
    }
    EXPECT_EQ(mac.smc->finds, 1) << "it is not searched for again and again";

    mac.smc->arrive();
    mac.smc->isBusy = true;
    EXPECT_THAT(mac.keys(), ElementsAre("HID/pACC", "HID/AS_PERF_AVG"));
    EXPECT_EQ(mac.read("TC0P"), SensorReading());
    mac.smc->isBusy = false;
    const auto before = mac.source->generation();
    EXPECT_THAT(mac.keys(), ElementsAre("HID/pACC", "HID/AS_PERF_AVG", "PSTR", "PDTR", "TH0x", "F0Ac"))
        << "of what services tell nothing, and no other keys beside them";
    EXPECT_EQ(mac.source->sensors()[2].kind, SensorKind::Power);
    EXPECT_EQ(mac.source->sensors()[2].label, "Whole machine");
    EXPECT_EQ(mac.read("TC0P"), (SensorReading{true, 40})) << "not remembered as one that is not there";
    EXPECT_EQ(mac.read("PSTR"), (SensorReading{true, 7.5}));
    EXPECT_EQ(mac.source->generation(), before);

    const Mac slow;
    slow.smc->setFloat("TC0P", 40);
    slow.hid() = {{"pACC", 40.0}};
    slow.services->late = true;
    EXPECT_THAT(slow.keys(), testing::IsEmpty());
    slow.services->late = false;
    EXPECT_THAT(slow.keys(), ElementsAre("HID/pACC", "HID/AS_PERF_AVG")) << "no sensor twice";

    const Mac refused;
    refused.smc->openStatus = IOStatus::NotPrivileged;
    refused.source->generation();
    refused.smc->openStatus = IOStatus::Success;
    refused.smc->set("FNum", "ui8 ", {1});
    EXPECT_THAT(refused.keys(), ElementsAre("F0Ac")) << "it is there, so it is worth another try";
}

TEST(MacSensorSource, AnSMCThatIsBusyForAWhileHidesNothingAndIsNotAskedForEver)
{
    for (int busy = 0; busy < 50; ++busy) { // so that it ends amid each kind of question
        for (const bool isAlone : {false, true}) {
            const Mac mac;
            mac.hid() =
                isAlone ? std::vector<SensorServiceReading>() : std::vector<SensorServiceReading>{{"gas", 30.0}};
            mac.smc->setFloat("PSTR", 7.5F);
            mac.smc->setFloat("PDTR", 20);
            mac.smc->setFloat("TC0P", 40);
            mac.smc->set("FNum", "ui8 ", {1});
            mac.smc->busyCalls = busy;
            for (int look = 0; look < 20; ++look) {
                mac.source->generation();
            }
            EXPECT_THAT(mac.keys(), testing::UnorderedElementsAre(isAlone ? "TC0P" : "HID/gas", "PSTR", "PDTR", "F0Ac"))
                << busy << isAlone;
        }
    }
    const auto isLeftAlone = [](const Mac& mac) {
        const auto work = [&] { return mac.smc->sent.size() + static_cast<std::size_t>(mac.smc->finds); };
        for (int look = 0; look < 40; ++look) {
            mac.source->generation();
        }
        const std::size_t before = work();
        mac.source->generation();
        return work() == before;
    };
    const Mac failing;
    failing.hid() = {{"gas", 30.0}};
    failing.smc->set("FNum", "ui8 ", {1});
    failing.smc->keys["FNum"].infoResult = 133;
    EXPECT_TRUE(isLeftAlone(failing));
    const Mac empty;
    EXPECT_TRUE(isLeftAlone(empty)) << "no key is a sensor";
    const Mac refusing;
    refusing.smc->openStatus = IOStatus::NotPrivileged;
    EXPECT_TRUE(isLeftAlone(refusing));
    refusing.smc->openStatus = IOStatus::Success;
    refusing.smc->set("FNum", "ui8 ", {1});
    refusing.smc->arrive();
    EXPECT_THAT(refusing.keys(), ElementsAre("F0Ac"));
}

TEST(MacSensorSource, FansOfAnEmulatedSMCNameThemselves)
{
    const Mac mac(SMCOrigin::Emulated);
    mac.smc->set("TC0P", "sp78", {0x29, 0x80});
    mac.smc->set("FNum", "ui8 ", {11});
    for (const char* prefix : {"F0", "F9", "FA"}) {
        mac.smc->set(std::string(prefix) + "Ac", "fpe2", {0x12, 0xC0});
        mac.smc->set(std::string(prefix) + "ID", "{fds", {0, 1, 'C', ' ', 'P', 'U', 0, 0xFF});
        mac.smc->set(std::string(prefix) + "Mn", "fpe2", {0x0C, 0x80});
        mac.smc->set(std::string(prefix) + "Mx", "fpe2", {0x32, 0x00});
    }
    mac.smc->set("F1Ac", "fpe2", {0x12, 0xC0}); // a fan without a name is not shown
    ASSERT_THAT(mac.keys(), ElementsAre("F0Ac", "F9Ac", "FAAc"));
    EXPECT_EQ(mac.source->sensors()[2],
        (SensorRecord{.key = "FAAc",
            .chip = "SMC",
            .channel = "FAAc",
            .label = "CPU\xEF\xBF\xBD",
            .kind = SensorKind::Fan,
            .limits = {.low = 800, .high = 3200},
            .mayStandStill = true}));
    EXPECT_EQ(mac.read("FAAc"), (SensorReading{true, 1200}));
}

} // namespace
} // namespace meridal
