// SPDX-License-Identifier: Apache-2.0
#include "client/panels/ScreenFrame.h"
#include "client/panels/ActionDialog.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <csignal>

namespace meridal {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

ScreenFrame usualFrame()
{
    return {.machine = "host",
        .now = 1700000000,
        .isConnected = true,
        .isPaused = false,
        .moment = {},
        .titles = {"Overview", "Processes", "Sensors"},
        .front = 1,
        .keys = {{"k", "signal", "send a signal"}},
        .prompt = {}};
}

TEST(ScreenFrame, StandsAroundThePanel)
{
    const Lines panel = {{{Style::Plain, "one"}}, {{Style::Plain, "two"}}, {{Style::Plain, "three"}}};
    const std::string text = textOf(framedLines(usualFrame(), panel, 1, 6, 60));
    EXPECT_THAT(text, StartsWith("host "));
    EXPECT_THAT(
        text, HasSubstr("\n 1 Overview [2 Processes] 3 Sensors\ntwo\nthree\n\n? help  q quit  k signal  p pause\n"));
    ScreenFrame small = usualFrame();
    small.isConnected = false;
    small.isPaused = true;
    const Lines lines = framedLines(small, panel, 0, 4, 24);
    EXPECT_EQ(lines.size(), 4U);
    EXPECT_EQ(plainText(lines[1]), " 1[2 Processes] 3");
    EXPECT_THAT(textOf(framedLines(small, panel, 0, 4, 40)), HasSubstr("NO DAEMON, PAUSED"));
    for (int size = 0; size < 8; ++size) {
        EXPECT_EQ(framedLines(small, panel, 9, size, size).size(), static_cast<std::size_t>(size));
    }
}

TEST(ScreenFrame, ItsTitlesCanBeClickedAt)
{
    EXPECT_EQ(panelAtColumn(usualFrame(), 60, 0), 0U);
    EXPECT_EQ(panelAtColumn(usualFrame(), 60, 14), 1U);
    EXPECT_EQ(panelAtColumn(usualFrame(), 60, 59), std::nullopt);
    EXPECT_EQ(panelAtColumn(usualFrame(), 20, 16), 2U); // in the short form
    EXPECT_EQ(panelAtColumn(usualFrame(), 60, -1), std::nullopt);
}

TEST(ActionDialog, DoesNothingWithoutAYes)
{
    const SignalWish wish{.processes = {{.pid = 7, .started = 5, .name = "make"}}, .signal = {}};
    for (const char32_t other : U"nYx\r") {
        ActionDialog dialog(wish);
        EXPECT_EQ(dialog.press(Key::of('k')), ActionDialog::Outcome::Asking);
        EXPECT_THAT(plainText(dialog.line(80)), "Send SIGKILL to make (7)?  y yes  n no");
        EXPECT_EQ(dialog.press(Key::of(other)), ActionDialog::Outcome::GivenUp);
    }
    ActionDialog dialog(wish);
    EXPECT_EQ(dialog.press(Key::of(Key::Kind::Enter)), ActionDialog::Outcome::GivenUp);
    dialog = ActionDialog(wish);
    dialog.press(Key::of('s'));
    EXPECT_THAT(plainText(dialog.line(30)), EndsWith("…  y yes  n no")); // the answers stay in sight
    EXPECT_EQ(dialog.press(Key::of('y')), ActionDialog::Outcome::Done);
    EXPECT_EQ(std::get<SignalAction>(dialog.action()).signal, SIGSTOP);
}

TEST(ActionDialog, TakesOnlyWhatIsANiceValue)
{
    ActionDialog dialog(ReniceWish{.process = {.pid = 7, .started = 5, .name = "make"}, .nice = 0});
    dialog.press(Key::of(Key::Kind::Backspace));
    dialog.press(Key::of('9'));
    dialog.press(Key::of('9'));
    EXPECT_EQ(dialog.press(Key::of(Key::Kind::Enter)), ActionDialog::Outcome::Asking);
    dialog.press(Key::of(Key::Kind::Backspace));
    EXPECT_EQ(dialog.press(Key::of(Key::Kind::Enter)), ActionDialog::Outcome::Done);
    EXPECT_EQ(std::get<ReniceAction>(dialog.action()).nice, 9);
}

} // namespace
} // namespace meridal
