// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/PanelWish.h"
#include "client/panels/TextEntry.h"
#include "client/screen/Key.h"
#include "client/screen/StyledText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace meridal {

/// What people said yes to.
struct SignalAction {
    std::vector<SeenProcess> processes;
    int signal = 0;
};
struct ReniceAction {
    SeenProcess process;
    int nice = 0;
};
using ProcessAction = std::variant<SignalAction, ReniceAction>;

/// The question before something is done to processes, on one line: which signal, and whether really; or how nice.
class ActionDialog {
public:
    enum class Outcome : std::uint8_t { Asking, GivenUp, Done };

    explicit ActionDialog(SignalWish wish) : wish_(std::move(wish)) { }
    explicit ActionDialog(ReniceWish wish);

    Line line(int columns) const;
    Outcome press(const Key& key);
    /// Once Done.
    ProcessAction action() const;

private:
    Outcome pressOnSignal(SignalWish& wish, const Key& key);
    Outcome pressOnNice(const Key& key);

    std::variant<SignalWish, ReniceWish> wish_;
    TextEntry entry_; ///< of how nice
};

/// "SIGTERM"; a number for those that the dialog does not offer.
std::string signalName(int signal);
/// "firefox (4711)", "3 processes".
std::string processesText(const std::vector<SeenProcess>& processes);

} // namespace meridal
