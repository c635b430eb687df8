// SPDX-License-Identifier: Apache-2.0
#include "client/commands/LiveScreen.h"

#include "client/screen/TextTable.h"

#include <csignal>
#include <utility>

namespace meridal {

std::unique_ptr<LiveScreen> LiveScreen::open(Session& session, Task paint, std::function<void(char key)> press)
{
    auto screen = session.medium().isTerminal ? Screen::open({.isColoured = session.medium().isColoured}) : nullptr;
    if (!screen) {
        return nullptr;
    }
    return std::unique_ptr<LiveScreen>(new LiveScreen(session, std::move(screen), paint, std::move(press)));
}

LiveScreen::LiveScreen(
    Session& session, std::unique_ptr<Screen> screen, const Task& paint, std::function<void(char key)> press)
    : session_(session), screen_(std::move(screen)), press_(std::move(press))
{
    constexpr int standardInput = 0;
    resizes_ = session_.loop().watchSignals({SIGWINCH}, [this, paint] {
        screen_->resized();
        paint();
    });
    keys_ = session_.loop().watchReadable(standardInput, [this] { readKeys(); });
}

void LiveScreen::show(Lines lines)
{
    for (Line& line : lines) {
        line = cutLine(std::move(line), screen_->columns());
    }
    screen_->show(lines);
}

void LiveScreen::readKeys()
{
    bool gotKey = false;
    while (const auto key = screen_->readKey()) {
        gotKey = true;
        if (key->is('q')) {
            session_.finish(exitStatus::success);
        } else if (press_ && key->kind == Key::Kind::Character && key->character < 0x80) {
            press_(static_cast<char>(key->character));
        }
    }
    // An input that is at its end stays readable for ever; a key's escape sequence may come in pieces.
    constexpr int enoughNothing = 3;
    emptyReads_ = gotKey ? 0 : emptyReads_ + 1;
    if (emptyReads_ >= enoughNothing) {
        keys_.reset();
    }
}

} // namespace meridal
