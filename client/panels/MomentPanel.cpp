// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/panels/TextEntry.h"
#include "client/screen/Format.h"
#include "client/screen/Moments.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "client/views/AtView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace meridal {

namespace {

struct MomentStep {
    char key;
    double seconds;
    const char* word;
    const char* one;
};
constexpr std::array<MomentStep, 3> momentSteps = {
    {{'m', 60, "minute", "a minute"}, {'h', 3600, "hour", "an hour"}, {'d', day, "day", "a day"}}};

/// Everything that was recorded of one moment, and the way to it: what is chosen here, other panels show, too.
class MomentPanel final : public Panel {
public:
    std::string_view name() const override { return "moment"; }
    std::string_view title() const override { return "Moment"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        past_.addQuestion(questions, view);
        return questions;
    }

    void take(const PanelAnswer& answer) override { past_.take(answer); }

    Lines lines(const PanelView& view) override
    {
        Lines lines;
        if (entry_) {
            lines.push_back(entry_->line("when: ", view.columns));
            lines.push_back({{Style::Faint, cutHint(view.columns)}});
        }
        if (!view.moment) {
            appendLines(lines, introduction(view.columns));
        } else if (!past_.complaint().empty()) {
            lines.push_back({{Style::Warning, past_.complaint()}});
        } else if (const Value* then = past_.of(view)) {
            appendLines(lines, foldedLines(atLines(*then, view.now, view.columns), view.columns));
        }
        return lines;
    }

    bool showsPast() const override { return true; }
    bool takesText() const override { return entry_.has_value(); }

    KeyOutcome press(const Key& key, const PanelView& view) override
    {
        if (entry_) {
            return type(key, view);
        }
        if (key.kind == Key::Kind::Left || key.kind == Key::Kind::Right) {
            return step(key.kind == Key::Kind::Left ? -1 : 1, view);
        }
        if (key.kind == Key::Kind::Enter || key.is('/')) {
            entry_.emplace();
            return KeyOutcome::taken();
        }
        if (key.is('n')) {
            return KeyOutcome::wishing(MomentWish{});
        }
        const auto* found = std::find_if(momentSteps.begin(), momentSteps.end(),
            [&](const MomentStep& each) { return key.is(static_cast<char32_t>(each.key)); });
        step_ = found != momentSteps.end() ? found : step_;
        return found != momentSteps.end() ? KeyOutcome::taken() : KeyOutcome::notTaken();
    }

    std::vector<PanelKey> keys() const override
    {
        std::vector<PanelKey> keys = {{"←→", step_->word, "a step back and a step on"},
            {"Enter", "when", "type a moment: yesterday 18:30, Tue 03:00, -2h, 2026-11-20 18:30"},
            {"n", "now", "all panels show what is now again"}};
        for (const MomentStep& each : momentSteps) {
            keys.push_back({{each.key}, each.word, std::string("steps of ") + each.one});
        }
        return keys;
    }

private:
    static std::string cutHint(int columns)
    {
        constexpr int wide = 60;
        return columns < wide ? "-2h, Tue 03:00, yesterday 18:30"
                              : "-2h, yesterday 18:30, Tue 03:00, 20 Nov 18:30, 2026-11-20 18:30; Esc gives up";
    }

    Lines introduction(int columns) const
    {
        Lines lines =
            wrappedLines(Style::Plain, "This is now. What was at another moment is in the record:", 0, columns);
        lines.emplace_back();
        const std::array<std::pair<const char*, std::string>, 3> ways = {
            {{"←", std::string(step_->one) + " back; m, h and d choose how long a step is"},
                {"Enter", "type a moment, such as \"yesterday 18:30\" or \"-2h\""}, {"n", "back to now"}}};
        for (const auto& [key, words] : ways) {
            constexpr int keyColumns = 8;
            Lines wrapped = wrappedLines(Style::Plain, words, keyColumns, columns);
            wrapped.front().front() = {Style::Title, fitLeft(std::string("  ") + key, keyColumns)};
            appendLines(lines, wrapped);
        }
        lines.emplace_back();
        appendLines(lines,
            wrappedLines(
                Style::Faint, "The other panels show that moment, too, as far as it was recorded.", 0, columns));
        return lines;
    }

    /// From now on to the whole minute before it: of the one that is not over nothing is known yet.
    KeyOutcome step(int direction, const PanelView& view) const
    {
        const double start = view.moment.value_or(std::floor(view.now / 60) * 60);
        const double moment = start + direction * step_->seconds;
        if (moment >= view.now) {
            return KeyOutcome::wishing(MomentWish{});
        }
        return KeyOutcome::wishing(MomentWish{std::max(moment, 0.0)});
    }

    KeyOutcome type(const Key& key, const PanelView& view)
    {
        const TextEntry::Outcome outcome = entry_->press(key);
        if (outcome == TextEntry::Outcome::Typing) {
            return KeyOutcome::taken();
        }
        const std::string words = entry_->text();
        if (outcome == TextEntry::Outcome::GivenUp || words.empty()) {
            entry_.reset();
            return KeyOutcome::taken();
        }
        const auto moment = momentFrom(words, view.now);
        if (!moment || *moment > view.now) {
            return KeyOutcome::wishing(
                MessageWish{moment ? "that is still to come" : momentComplaint(words)}); // and it can be mended
        }
        entry_.reset();
        return KeyOutcome::wishing(MomentWish{*moment});
    }

    const MomentStep* step_ = momentSteps.data();
    std::optional<TextEntry> entry_; ///< while a moment is typed
    PastMoment past_;
};

} // namespace

std::unique_ptr<Panel> makeMomentPanel() { return std::make_unique<MomentPanel>(); }

} // namespace meridal
