// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "client/panels/PanelWish.h"
#include "client/screen/Key.h"
#include "client/screen/StyledText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What a panel wants to know of the daemon.
struct PanelQuestion {
    /// How the daemon tells it.
    enum class Kind : std::uint8_t {
        Answer, ///< once, or again and again, `interval` after each answer
        Watch,  ///< one answer, then notifications of the same method, which tell what changed
        List,   ///< envelopes of a request key: `parameters` is the key as a number, `method` stays empty
    };

    std::string name; ///< by which the panel knows the answer; none twice in a panel
    std::string method = {};
    Value parameters = Value::object();
    double interval = 0; ///< s; of Answer: 0 is once. Of Watch and List it is the daemon's own matter
    Kind kind = Kind::Answer;

    bool operator==(const PanelQuestion&) const = default;
};

/// What the daemon said.
struct PanelAnswer {
    std::string_view name; ///< of the question
    Result<Value> result;  ///< or why not, for people: too old a daemon, nothing there, no permission
    double time = 0;       ///< when it came, s since 1970; may step
    double clock = 0;      ///< when it came, by a clock that never steps, s
    bool isChange = false; ///< of a Watch: tells what changed only
};

/// What a panel draws on, and when.
struct PanelView {
    int rows = 24; ///< of the panel, without the frame's own lines
    int columns = 80;
    double now = 0;       ///< s since 1970
    bool isAscii = false; ///< other characters are replaced by what comes nearest; who can say it better in ASCII may
    bool isConnected = true;           ///< false: what is shown is the last that was known, and the frame says so
    std::optional<double> moment = {}; ///< the past moment (s since 1970) that is looked at; none: now
};

/// A key of a panel, for the line of keys and for the help.
struct PanelKey {
    std::string key;  ///< "k", "Enter", "/"
    std::string word; ///< "signal": for the line of keys; empty: for the help only
    std::string help; ///< a sentence's worth
};

/// One page of the full screen. It knows neither terminal nor connection: it says what it wants to know, is told, and gives
/// lines. The frame owns it for the whole run, and keeps those that are not shown without questions.
class Panel {
public:
    Panel() = default;
    virtual ~Panel() = default;
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    /// A word by which a panel is opened, on the command line, too: "battery".
    virtual std::string_view name() const = 0;
    /// For the row of panels, a word: "Battery".
    virtual std::string_view title() const = 0;

    /// All that it wants to know just now. Looked up after each answer, key and change of the view: a question that is new, or
    /// differs from that of the same name, is asked at once, one that is missing is asked no more. Questions are asked anew
    /// when the panel comes to the front, when the daemon comes back, and at the end of a pause, in which what is new is asked
    /// once and nothing repeated. So a panel keeps nothing but what it wants, and is never told what it did not ask.
    virtual std::vector<PanelQuestion> questions(const PanelView& view) const = 0;
    /// Is told an answer. What it cannot use it leaves alone: a daemon may be older or newer than this program.
    virtual void take(const PanelAnswer& answer) = 0;

    /// What to show. Lines longer than the view are cut; of more lines than the view has the frame shows a part and lets people
    /// scroll by the keys that the panel does not take. Where the panel does not take Escape it leads back to now. No line: it has nothing yet, and the frame says so.
    virtual Lines lines(const PanelView& view) = 0;

    /// Whether it can show a past moment. Else the frame says that nothing of it is recorded, and asks nothing meanwhile.
    virtual bool showsPast() const { return false; }

    /// Takes a key, and says what it wishes. Tab, digits, q, p, space and ? are the frame's, unless takesText(). The row of the
    /// mouse is that of the panel's lines, from 0 on, scrolled ones included.
    virtual KeyOutcome press(const Key&, const PanelView&) { return KeyOutcome::notTaken(); }
    /// While text is typed into it: every key is the panel's, Escape included.
    virtual bool takesText() const { return false; }
    /// Its own keys, the most useful first.
    virtual std::vector<PanelKey> keys() const { return {}; }

    /// Somebody comes from elsewhere and wants something particular, as in OpenWish.
    virtual void open(const Value&) { }
};

} // namespace meridal
