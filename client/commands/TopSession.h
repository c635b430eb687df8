// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/views/TopView.h"

namespace meridal {

/// Where the top processes appear.
class TopDisplay {
public:
    virtual ~TopDisplay() = default;
    /// The daemon sent a list.
    virtual void tableArrived(const TopFrame& frame) = 0;
    /// Something else changed: the choice, the connection, the daemon's status.
    virtual void frameChanged(const TopFrame& frame) = 0;
};

/// How a display wants to be fed.
struct TopFeed {
    RequestKey list = RequestKey::Cpu;
    bool hierarchy = false;
    double settle = 0;      ///< s after the first list within which lists are left out: rates are not real yet
    bool hasStatus = false; ///< ask for the daemon's status, too
};

/// Holds the daemon to one list at a time and keeps the frame of it; over restarts of the daemon, too.
class TopSession {
public:
    TopSession(Session& session, TopDisplay& display, TopFeed feed);

    /// Call once connected.
    void start();
    void choose(RequestKey list);
    void toggleHierarchy();
    const TopFrame& frame() const { return frame_; }

private:
    void connected();
    void disconnected();
    void received(const Dictionary& envelope);
    void askForList();
    void askForStatus();

    Session& session_;
    TopDisplay& display_;
    TopFeed feed_;
    TopFrame frame_;
    std::optional<double> firstList_;  ///< s of the loop's clock; of this connection and list
    std::optional<double> latestList_; ///< the same
    std::size_t lists_ = 0;            ///< received in all
};

} // namespace meridal
