// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/screen/Screen.h"

#include <functional>
#include <memory>

namespace meridal {

/// The whole terminal for a view that goes on until `q` is pressed, with its keys and its changes of size.
class LiveScreen {
public:
    /// `paint` is called when the size changed, `press` with each other key. Nothing when standard output is no terminal
    /// that can place text. The session must outlive it.
    static std::unique_ptr<LiveScreen> open(Session& session, Task paint, std::function<void(char key)> press = {});
    LiveScreen(const LiveScreen&) = delete;
    LiveScreen& operator=(const LiveScreen&) = delete;

    int rows() const { return screen_->rows(); }
    int columns() const { return screen_->columns(); }
    /// Lines are cut where the screen ends: what does not fit would go on below, where the next one is.
    void show(Lines lines);

private:
    LiveScreen(
        Session& session, std::unique_ptr<Screen> screen, const Task& paint, std::function<void(char key)> press);
    void readKeys();

    Session& session_;
    std::unique_ptr<Screen> screen_;
    std::function<void(char key)> press_;
    std::unique_ptr<Watch> resizes_;
    std::unique_ptr<Watch> keys_;
    int emptyReads_ = 0;
};

} // namespace meridal
