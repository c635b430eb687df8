// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformController.h"
#include "platform/PlatformMacPro.h"
#include "platform/PlatformiMac.h"
#include "platform/SerialNumber.h"
#include "platform/ZAVVersions.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace meridal {
namespace {

struct Platform : testing::Test {
    ZAVVersions versionsOf(SystemRelease release)
    {
        machine.machine().release = release;
        return ZAVVersions(machine.machine());
    }

    test::FakeMachine machine;
};

TEST_F(Platform, EveryReleaseTestMeansThatReleaseOrLater)
{
    const ZAVVersions catalina = versionsOf({10, 15, 7});
    EXPECT_TRUE(catalina.isLion() && catalina.isSierra() && catalina.isCatalina() && !catalina.isBigSur());
    EXPECT_EQ(catalina.bugfix(), 7);
    const ZAVVersions mavericks = versionsOf({10, 9, 0});
    EXPECT_TRUE(mavericks.isMavericks() && mavericks.mavericks() && mavericks.isMountainLion());
    EXPECT_FALSE(mavericks.isYosemite() || mavericks.isElCapitan() || mavericks.isHighSierra() || mavericks.isMojave());
    EXPECT_TRUE(versionsOf({10, 16, 0}).isBigSur());
    EXPECT_TRUE(versionsOf({11, 0, 0}).isLion() && versionsOf({11, 0, 0}).isBigSur());
    EXPECT_FALSE(versionsOf({10, 6, 8}).isLion() || versionsOf({9, 20, 0}).isLion());
}

TEST_F(Platform, LaptopsAreKnownByModelOrChassis)
{
    const auto laptop = [&](std::optional<std::string> model, std::optional<bool> portable) {
        machine.machine().model = std::move(model);
        machine.machine().portable = portable;
        return PlatformController(machine.context).isLaptop();
    };
    EXPECT_TRUE(laptop("MacBookPro18,3", std::nullopt));
    EXPECT_TRUE(laptop("macbook1,1", std::nullopt));
    EXPECT_FALSE(laptop("Macmini9,1", std::nullopt));
    EXPECT_FALSE(laptop(std::nullopt, std::nullopt));
    EXPECT_TRUE(laptop("ThinkPad X1", true));
    EXPECT_FALSE(laptop("PowerEdge R740", false));
}

TEST_F(Platform, TheModelChoosesThePlatformObject)
{
    const auto platform = [&](std::optional<std::string> model) {
        machine.machine().model = std::move(model);
        const PlatformController controller(machine.context);
        const auto& current = controller.currentPlatform();
        return std::tuple(current.identifier(), dynamic_cast<const PlatformMacPro*>(&current) != nullptr,
            current.ignoreGraphicsControl(), current.hideIntergratedGraphics());
    };
    EXPECT_EQ(platform("MacPro7,1"), std::tuple("MacPro7,1", true, true, false));
    EXPECT_EQ(platform("iMac20,2"), std::tuple("iMac20,2", false, false, true));
    EXPECT_EQ(platform("VirtualMachine9,9"), std::tuple("VirtualMachine9,9", false, false, false));
    EXPECT_EQ(platform(std::nullopt), std::tuple("Unknown", false, false, false));
}

TEST_F(Platform, AnEmulatedSmcMakesAFauxMacWhateverTheModelSays)
{
    machine.machine().model = "MacPro7,1";
    machine.machine().service = "FakeSMC";
    const PlatformController plain(machine.context);
    EXPECT_TRUE(plain.fauxMac());
    EXPECT_FALSE(dynamic_cast<const PlatformMacPro*>(&plain.currentPlatform()));

    PlatformRegistry registry;
    registry.emplace("FauxMac", [](Context& context) { return std::make_unique<PlatformiMac>(context); });
    const PlatformController known(machine.context, registry);
    EXPECT_TRUE(dynamic_cast<const PlatformiMac*>(&known.currentPlatform()));
}

TEST(SerialNumber, TellsWhenAMachineWasMade)
{
    using Date = ManufactureDate;
    EXPECT_EQ(manufactureDate("W8810XYZABC", "MacBookPro4,1"), (Date{2008, 10}));
    EXPECT_EQ(manufactureDate("W8052XYZABC", "iMac11,3"), (Date{2010, 52})) << "digits 0 to 2 are the next decade";
    EXPECT_EQ(manufactureDate("C02C1ABCDEFG", "MacBookPro6,2"), (Date{2010, 1}));
    EXPECT_EQ(manufactureDate("C02TYABCDEFG", "MacBookPro14,3"), (Date{2017, 27}));
    EXPECT_EQ(manufactureDate("C02ZCABCDEFG", "MacPro7,1"), (Date{2019, 36}));
    for (const char* model :
        {"MacBookPro16,1", "MacBookPro15,2", "iMac18,1", "Macmini8,1", "MacPro7,1", "iMacPro1,1"}) {
        EXPECT_EQ(manufactureDate("C02D1ABCDEFG", model), (Date{2020, 27})) << "the letters' second round: " << model;
    }
}

TEST(SerialNumber, TellsNothingItDoesNotKnow)
{
    EXPECT_FALSE(manufactureDate("", "MacBookPro18,3"));
    EXPECT_FALSE(manufactureDate("FX3JQ6WN2T", "MacBookPro18,3")) << "random";
    EXPECT_FALSE(manufactureDate("C02A1ABCDEFG", "MacBookPro6,2")) << "A is no half-year";
    EXPECT_FALSE(manufactureDate("W8899XYZABC", "MacBookPro4,1")) << "week 99";
    EXPECT_FALSE(manufactureDate("C02TYABCDEFG", "ThinkPad X1")) << "another vendor's serial";
    EXPECT_FALSE(manufactureDate("C02D1ABCDEFG", "MacBookPro11,4")) << "made from 2013 to 2018";
    const bool holds = rc::check("any text of the right length is safe", [] {
        const auto length = *rc::gen::element<std::size_t>(11, 12);
        const auto serial = *rc::gen::container<std::string>(length, rc::gen::inRange('0', '['));
        const auto date = manufactureDate(serial, "iMac12,1");
        RC_ASSERT(!date || (date->week >= 1 && date->week <= 53));
    });
    EXPECT_TRUE(holds);
}

TEST_F(Platform, MachineFiguresComeFromTheHost)
{
    machine.machine().serial = "C02TYABCDEFG";
    machine.machine().board = "Mac-ABC";
    const PlatformMac platform(machine.context);
    EXPECT_EQ(platform.manufactureYear(), 2017);
    EXPECT_EQ(platform.manufactureWeek(), 27);
    EXPECT_EQ(platform.boardID(), "Mac-ABC");
    EXPECT_EQ(platform.cpuCount(), 8);
    EXPECT_EQ(platform.cpuPhysicalCoreCount(), 4);
    machine.machine().serial.reset();
    EXPECT_EQ(PlatformMac(machine.context).manufactureYear(), 0);
}

} // namespace
} // namespace meridal
