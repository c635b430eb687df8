// SPDX-License-Identifier: Apache-2.0
#include "client/commands/ScreenSession.h"

#include "base/Installation.h"
#include "base/Text.h"
#include "client/commands/ProcessActions.h"
#include "client/panels/Panels.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "wire/Methods.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <utility>
#include <variant>

namespace meridal {

namespace {

constexpr double screenReconnectInterval = 1; // s
constexpr double paintDelay = 0.02;           // s in which answers that come together are painted together
constexpr std::size_t wheelLines = 3;

/// Calls that of some functions which takes the type.
template <typename... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

} // namespace

ScreenSession::ScreenSession(Session& session, std::unique_ptr<Screen> screen, const std::string& panel)
    : session_(session), screen_(std::move(screen)), panels_(allPanels()), feed_(session, [this] {
        isStale_ = true;
        feed_.update(view());
        paintSoon();
    })
{
    constexpr int standardInput = 0;
    for (const auto& each : panels_) {
        frame_.front = each->name() == panel ? frame_.titles.size() : frame_.front;
        frame_.titles.emplace_back(each->title());
    }
    frame_.isConnected = false;
    resizes_ = session_.loop().watchSignals({SIGWINCH}, [this] {
        screen_->resized();
        isStale_ = true;
        refresh();
    });
    keys_ = session_.loop().watchReadable(standardInput, [this] { readKeys(); });
}

void ScreenSession::start(const Result<void>& connected)
{
    session_.client().setReconnectInterval(screenReconnectInterval);
    session_.client().setEvents(
        {[this] { this->connected(); }, [this](const Error& error) { disconnected(error.message); },
            [this](const Dictionary& envelope) { feed_.envelopeArrived(envelope); },
            [this](const Notification& notification) { feed_.changed(notification); }});
    feed_.serve(&front());
    if (!connected) {
        absence_ = connected.error().message;
        tryAgain();
    }
    tick();
}

void ScreenSession::connected()
{
    frame_.isConnected = true;
    isStale_ = true;
    session_.client().call(method::machineInfo, Value::object(), [this](const Result<Value>& info) {
        if (info) {
            frame_.machine = printable(text(*info, "hostName").value_or(""));
            paintSoon();
        }
    });
    feed_.restart(view());
    paintSoon();
}

void ScreenSession::disconnected(const std::string& why)
{
    frame_.isConnected = false;
    absence_ = why;
    isStale_ = true;
    paint();
}

/// Until there has been a connection; from then on the client does so itself. A daemon that is just being started is met soon.
void ScreenSession::tryAgain()
{
    constexpr int soonAttempts = 50;
    constexpr double soon = 0.1; // s
    retry_ = session_.loop().after(++attempts_ < soonAttempts ? soon : screenReconnectInterval, [this] {
        session_.client().connect([this](const Result<void>& connected) {
            if (!connected) {
                absence_ = connected.error().message;
                isStale_ = true;
                tryAgain();
            }
        });
    });
}

PanelView ScreenSession::view() const
{
    return {.rows = std::max(screen_->rows() - frameLinesAbove - frameLinesBelow, 1),
        .columns = screen_->columns(),
        .now = wallTime(),
        .isAscii = screen_->isAscii(),
        .isConnected = frame_.isConnected,
        .moment = frame_.moment};
}

Lines ScreenSession::waitingLines() const
{
    const int columns = screen_->columns();
    if (frame_.isConnected) {
        return {{{Style::Faint, "waiting for the first figures"}}};
    }
    Lines lines = wrappedLines(Style::Warning,
        "No daemon at " + printable(session_.client().socketPath()) + (absence_.empty() ? "" : ": " + absence_), 0,
        columns);
    appendLines(lines,
        wrappedLines(Style::Plain,
            "Start it with \"" + installation().startCommand
                + "\", or leave with q and type \"meridalctl screen --spawn\" for one of your own while you look.",
            0, columns));
    appendLines(lines, wrappedLines(Style::Faint, "This screen goes on as soon as there is one.", 0, columns));
    return lines;
}

Lines ScreenSession::panelLines()
{
    if (isHelpShown_) {
        frame_.keys = front().keys();
        return helpLines(frame_, screen_->columns());
    }
    if (isBeyondRecord()) {
        return wrappedLines(Style::Faint,
            "What this panel shows is not recorded; Esc leads back from the past moment to now.", 0,
            screen_->columns());
    }
    Lines lines = front().lines(view());
    return lines.empty() ? waitingLines() : lines;
}

void ScreenSession::paint()
{
    paint_.reset();
    if (std::exchange(isStale_, false)) {
        shown_ = panelLines();
        frame_.keys = front().keys();
    }
    const auto rows = static_cast<std::size_t>(view().rows);
    first_ = std::min(first_, shown_.size() > rows ? shown_.size() - rows : 0);
    frame_.now = wallTime();
    frame_.prompt.reset();
    if (dialog_) {
        frame_.prompt = dialog_->line(screen_->columns());
    } else if (!message_.empty()) {
        frame_.prompt = Line{{Style::Warning, message_}};
    }
    screen_->show(framedLines(frame_, shown_, first_, screen_->rows(), screen_->columns()));
}

void ScreenSession::paintSoon()
{
    if (!paint_) {
        paint_ = session_.loop().after(paintDelay, [this] { paint(); });
    }
}

/// The clock on the top line, at the turn of each second.
void ScreenSession::tick()
{
    const double now = wallTime();
    tick_ = session_.loop().after(1 - (now - std::floor(now)), [this] { tick(); });
    paint();
}

void ScreenSession::refresh()
{
    feed_.update(view());
    isStale_ = true;
    paint();
}

void ScreenSession::readKeys()
{
    bool gotKey = false;
    while (const auto key = screen_->readKey()) {
        gotKey = true;
        press(*key);
    }
    // An input that is at its end stays readable for ever; one that has only sequences of no key is readable now and then.
    constexpr int enoughNothing = 100;
    emptyReads_ = gotKey ? 0 : emptyReads_ + 1;
    if (emptyReads_ >= enoughNothing) {
        keys_.reset();
    }
}

void ScreenSession::press(Key key)
{
    message_.clear();
    if (key.kind == Key::Kind::Redraw) {
        screen_->repaint();
    } else if (dialog_) {
        pressOnDialog(key);
    } else if (isHelpShown_) {
        pressOnHelp(key);
    } else if (front().takesText() || !pressOnFrame(key)) {
        pressOnPanel(key);
    }
    refresh();
}

bool ScreenSession::pressOnFrame(const Key& key)
{
    const std::size_t count = panels_.size();
    if (key.is('q')) {
        session_.finish(exitStatus::success);
    } else if (key.is('?') || (key.kind == Key::Kind::Function && key.number == 1)) {
        isHelpShown_ = true;
        first_ = 0;
    } else if (key.is('p') || key.is(' ')) {
        pause();
    } else if (key.kind == Key::Kind::Tab) {
        bringToFront((frame_.front + 1) % count);
    } else if (key.kind == Key::Kind::BackTab) {
        bringToFront((frame_.front + count - 1) % count);
    } else if (key.kind == Key::Kind::Character && key.character >= '1' && key.character <= '9') {
        bringToFront(std::min<std::size_t>(key.character - '1', count - 1));
    } else if (key.kind == Key::Kind::Click && key.row < frameLinesAbove) {
        bringToFront(panelAtColumn(frame_, screen_->columns(), key.row == 1 ? key.column : -1).value_or(frame_.front));
    } else {
        return false;
    }
    return true;
}

void ScreenSession::pressOnHelp(const Key& key)
{
    if (!scroll(key)) {
        isHelpShown_ = false;
        first_ = 0;
    }
}

void ScreenSession::pressOnDialog(const Key& key)
{
    const auto outcome = dialog_->press(key);
    if (outcome == ActionDialog::Outcome::Asking) {
        return;
    }
    const ActionDialog dialog = *std::exchange(dialog_, std::nullopt);
    if (outcome == ActionDialog::Outcome::Done) {
        carryOut(dialog.action());
    }
}

void ScreenSession::pressOnPanel(const Key& key)
{
    Key theirs = key;
    if (key.isMouse()) {
        theirs.row += static_cast<int>(first_) - frameLinesAbove;
    }
    const KeyOutcome outcome = isBeyondRecord() ? KeyOutcome::notTaken() : front().press(theirs, view());
    if (outcome.isTaken) {
        carryOut(outcome.wish);
    } else if (!scroll(key) && key.kind == Key::Kind::Escape) {
        frame_.moment.reset();
    }
}

bool ScreenSession::scroll(const Key& key)
{
    const auto page = static_cast<std::size_t>(view().rows);
    const auto back = [this](std::size_t lines) { first_ -= std::min(lines, first_); };
    switch (key.kind) {
    case Key::Kind::Up:
        back(1);
        return true;
    case Key::Kind::Down:
        first_ += 1;
        return true;
    case Key::Kind::PageUp:
        back(page);
        return true;
    case Key::Kind::PageDown:
        first_ += page;
        return true;
    case Key::Kind::Home:
        first_ = 0;
        return true;
    case Key::Kind::End:
        first_ = shown_.size();
        return true;
    case Key::Kind::WheelUp:
        back(wheelLines);
        return true;
    case Key::Kind::WheelDown:
        first_ += wheelLines;
        return true;
    default:
        return false;
    }
}

void ScreenSession::carryOut(const PanelWish& wish)
{
    std::visit(Overloaded{[](std::monostate) {}, [this](const SignalWish& signal) { dialog_.emplace(signal); },
                   [this](const ReniceWish& renice) { dialog_.emplace(renice); },
                   [this](const OpenWish& open) {
                       for (std::size_t index = 0; index < panels_.size(); ++index) {
                           if (panels_[index]->name() == open.panel) {
                               bringToFront(index);
                               front().open(open.argument);
                           }
                       }
                   },
                   [this](const MomentWish& moment) { frame_.moment = moment.moment; },
                   [this](const MessageWish& message) { message_ = message.text; }},
        wish);
}

void ScreenSession::carryOut(const ProcessAction& action)
{
    message_ =
        std::visit(Overloaded{[](const SignalAction& signal) { return sendSignal(signal.processes, signal.signal); },
                       [](const ReniceAction& renice) { return setNice(renice.process, renice.nice); }},
            action);
}

void ScreenSession::bringToFront(std::size_t panel)
{
    if (panel == frame_.front) {
        return;
    }
    frame_.front = panel;
    first_ = 0;
    feed_.serve(&front());
}

void ScreenSession::pause()
{
    frame_.isPaused = !frame_.isPaused;
    feed_.setPaused(frame_.isPaused);
    if (!frame_.isPaused) {
        feed_.restart(view());
    }
}

} // namespace meridal
