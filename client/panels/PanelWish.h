// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace meridal {

/// A process as it was seen. A pid alone may be another's by now.
struct SeenProcess {
    std::int64_t pid = 0;
    double started = 0; ///< s since 1970, as the daemon tells it
    std::string name;   ///< printable, for the question
};

/// Sends a signal to processes, after people have said which one and have said yes.
struct SignalWish {
    std::vector<SeenProcess> processes;
    std::optional<int> signal; ///< none: the person chooses
};

/// Changes how nice a process is, after people have said how much.
struct ReniceWish {
    SeenProcess process;
    int nice = 0; ///< as it is now
};

/// Brings another panel to the front.
struct OpenWish {
    std::string panel; ///< its name
    Value argument;    ///< for its open()
};

/// Lets all panels show a past moment, s since 1970; none: now again.
struct MomentWish {
    std::optional<double> moment;
};

/// Says something on the frame's bottom line until the next key.
struct MessageWish {
    std::string text; ///< printable
};

/// What a panel wants the frame to do.
using PanelWish = std::variant<std::monostate, SignalWish, ReniceWish, OpenWish, MomentWish, MessageWish>;

/// What a key did.
struct KeyOutcome {
    bool isTaken = true; ///< false: the frame may use it
    PanelWish wish = {};

    static KeyOutcome taken() { return {}; }
    static KeyOutcome notTaken() { return {.isTaken = false}; }
    static KeyOutcome wishing(PanelWish wish) { return {.isTaken = true, .wish = std::move(wish)}; }
};

} // namespace meridal
