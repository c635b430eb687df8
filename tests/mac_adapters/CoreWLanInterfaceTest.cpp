// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/CoreWLanCalls.h"
#include "tests/support/HandWork.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace meridal {
namespace {

class CoreWLanInterfaceTest : public testing::Test {
protected:
    /// What the default interface says; others' names make no difference.
    WirelessIdentity identity()
    {
        return interface->identity("en7").value_or(WirelessIdentity{.bssid = {}, .ssid = "absent"});
    }
    bool isLimited() const { return limitations->all().contains("wifi-identity"); }

    std::optional<WirelessState> state;
    std::optional<std::string> refusal;
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::shared_ptr<test::HandWork::Script> script = std::make_shared<test::HandWork::Script>();
    std::unique_ptr<WirelessInterface> interface = makeCoreWLanInterface({.state = [this] { return state; },
                                                                             .setPower =
                                                                                 [this](bool on) {
                                                                                     state->powered =
                                                                                         refusal ? state->powered : on;
                                                                                     return refusal;
                                                                                 }},
        limitations, std::make_shared<test::HandWork>(script));
};

TEST_F(CoreWLanInterfaceTest, ANetworkThatIsWithheldIsALimitationUntilItIsTold)
{
    EXPECT_EQ(identity().ssid, "absent") << "a Mac without Wi-Fi";
    state.emplace();
    EXPECT_EQ(identity(), WirelessIdentity{}) << "switched off";
    state->powered = true;
    EXPECT_EQ(identity(), WirelessIdentity{}) << "no network is joined";
    EXPECT_FALSE(isLimited());
    state->inService = true;
    EXPECT_EQ(identity(), WirelessIdentity{});
    EXPECT_TRUE(isLimited());
    state->inService = false;
    identity();
    EXPECT_TRUE(isLimited()) << "that there is no network now tells nothing";
    state = {.bssid = "a0:b1:c2:d3:e4:f5", .ssid = "Home", .powered = true, .inService = true};
    EXPECT_EQ(identity(), (WirelessIdentity{.bssid = "a0:b1:c2:d3:e4:f5", .ssid = "Home"}));
    EXPECT_FALSE(isLimited());
    state->ssidBytes = std::string("Caf\xE9\0", 5);
    EXPECT_EQ(identity().ssid, std::string("Caf\xE9\0", 5)) << "the bytes rather than what became of them";
    state.reset();
    EXPECT_EQ(identity().ssid, "absent");
}

TEST_F(CoreWLanInterfaceTest, ALateAnswerSaysNothingOfTheNetwork)
{
    state = {.bssid = "a0:b1:c2:d3:e4:f5"};
    EXPECT_EQ(identity().bssid, "a0:b1:c2:d3:e4:f5");
    script->hang = 0;
    EXPECT_EQ(identity().bssid, "a0:b1:c2:d3:e4:f5") << "what it was a moment ago";
    EXPECT_EQ(identity(), WirelessIdentity{}) << "there is Wi-Fi, of which nothing is known";
    EXPECT_EQ(script->posts, 2) << "one question at a time";
    interface.reset();
    script->hanging.at(0)();
}

TEST_F(CoreWLanInterfaceTest, ThePowerIsSwitchedToTheOtherSide)
{
    EXPECT_EQ(interface->togglePower().error().code, ErrorCode::NotFound);
    state.emplace();
    EXPECT_TRUE(interface->togglePower());
    EXPECT_TRUE(state->powered);
    EXPECT_TRUE(interface->togglePower());
    EXPECT_FALSE(state->powered);
    for (const char* words : {"Operation not permitted", ""}) {
        refusal = words;
        const auto result = interface->togglePower();
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().code, ErrorCode::Unavailable);
        EXPECT_EQ(result.error().message, *words == '\0' ? "Wi-Fi cannot be switched" : words);
    }
}

} // namespace
} // namespace meridal
