// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/panels/Panel.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

/// Asks the daemon what one panel at a time wants to know, and tells it.
class PanelFeed {
public:
    /// `told` is called after the panel was told something, and after questions were refused for want of a connection.
    PanelFeed(Session& session, Task told);
    ~PanelFeed();
    PanelFeed(const PanelFeed&) = delete;
    PanelFeed& operator=(const PanelFeed&) = delete;

    /// From now on for this panel; null: for none. What the one before watched ends.
    void serve(Panel* panel);
    /// Looks up what the panel wants for such a view, and asks what is new.
    void update(const PanelView& view);
    /// Asks all anew, as on a connection that has just been made.
    void restart(const PanelView& view);
    /// While paused nothing is repeated, and what changes is left out.
    void setPaused(bool paused) { isPaused_ = paused; }

    void envelopeArrived(const Dictionary& envelope);
    void changed(const Notification& notification);

private:
    struct Asked {
        PanelQuestion question;
        std::uint64_t number = 0; ///< tells the answer to this one from that of an earlier one
        bool isAnswered = false;
        std::unique_ptr<Timer> next = nullptr;
    };

    void ask(const std::string& name);
    void askForList(const PanelQuestion& question);
    void answered(const std::string& name, std::uint64_t number, const Result<Value>& result);
    void tell(const std::string& name, const Result<Value>& result, bool isChange);
    void drop(const Asked& asked);

    Session& session_;
    const Task told_;
    Panel* panel_ = nullptr;
    bool isPaused_ = false;
    std::map<std::string, Asked> asked_; ///< by the question's name
    std::uint64_t latest_ = 0;
    Lifetime lifetime_;
};

} // namespace meridal
