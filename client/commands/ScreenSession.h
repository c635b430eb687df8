// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/PanelFeed.h"
#include "client/commands/Session.h"
#include "client/panels/ActionDialog.h"
#include "client/panels/Panel.h"
#include "client/panels/ScreenFrame.h"
#include "client/screen/Screen.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// The full screen: panels on a terminal, fed by the daemon, steered by keys. Goes on while the daemon is away.
class ScreenSession {
public:
    /// The first panel is the one of that name; the one with the digit 1 where there is none.
    ScreenSession(Session& session, std::unique_ptr<Screen> screen, const std::string& panel);

    /// Once there is a connection, or is none and why.
    void start(const Result<void>& connected);

private:
    void connected();
    void disconnected(const std::string& why);
    void tryAgain();

    PanelView view() const;
    Panel& front() { return *panels_[frame_.front]; }
    bool isBeyondRecord() const { return frame_.moment && !panels_[frame_.front]->showsPast(); }
    Lines panelLines();
    Lines waitingLines() const;
    void paint();
    void paintSoon();
    void tick();
    /// After anything that may have changed what the panel wants.
    void refresh();

    void readKeys();
    void press(Key key);
    bool pressOnFrame(const Key& key);
    void pressOnHelp(const Key& key);
    void pressOnDialog(const Key& key);
    void pressOnPanel(const Key& key);
    bool scroll(const Key& key);
    void carryOut(const PanelWish& wish);
    void carryOut(const ProcessAction& action);
    void bringToFront(std::size_t panel);
    void pause();

    Session& session_;
    std::unique_ptr<Screen> screen_;
    std::vector<std::unique_ptr<Panel>> panels_;
    PanelFeed feed_;
    ScreenFrame frame_;
    std::string absence_; ///< why there is no daemon
    std::string message_; ///< until the next key
    std::optional<ActionDialog> dialog_;
    bool isHelpShown_ = false;
    Lines shown_;           ///< of the panel, since something last changed
    bool isStale_ = true;   ///< they are to be made anew
    std::size_t first_ = 0; ///< of these lines, where the screen begins
    int emptyReads_ = 0;
    int attempts_ = 0; ///< to connect, before the first that succeeded
    std::unique_ptr<Watch> resizes_;
    std::unique_ptr<Watch> keys_;
    std::unique_ptr<Timer> tick_;
    std::unique_ptr<Timer> paint_;
    std::unique_ptr<Timer> retry_;
};

} // namespace meridal
