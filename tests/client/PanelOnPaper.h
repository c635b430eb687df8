// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Text.h"
#include "client/panels/Panel.h"
#include "tests/client/ViewText.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// A panel in a frame without terminal or daemon: questions are put to a function, as the frame would, and lines are text.
class PanelOnPaper {
public:
    using Daemon = std::function<Result<Value>(const PanelQuestion& question)>;

    PanelOnPaper(std::unique_ptr<Panel> panel, Daemon daemon) : panel_(std::move(panel)), daemon_(std::move(daemon))
    {
        view.now = 1'795'413'600; // 2026-11-23 06:00 UTC
        ask(false);
    }

    PanelView view;
    PanelWish wish; ///< of the latest key
    std::size_t asked = 0;

    Panel& operator*() { return *panel_; }

    /// Time goes on, and everything that is repeated is asked again.
    void pass(double seconds)
    {
        view.now += seconds;
        clock_ += seconds;
        ask(true);
    }

    bool press(const Key& key)
    {
        text(); // where the mouse points is what is shown
        KeyOutcome outcome = panel_->press(key, view);
        wish = outcome.wish;
        if (const auto* moment = std::get_if<MomentWish>(&wish)) {
            view.moment = moment->moment;
        }
        ask(false);
        return outcome.isTaken;
    }
    bool press(Key::Kind kind) { return press(Key::of(kind)); }
    void type(std::u32string_view keys)
    {
        for (const char32_t each : keys) {
            press(Key::of(each));
        }
    }
    void showMoment(std::optional<double> moment)
    {
        view.moment = moment;
        ask(false);
    }

    /// What is shown, of which nothing may be wider than the screen.
    std::string text()
    {
        const Lines lines = panel_->lines(view);
        for (const Line& line : lines) {
            EXPECT_LE(displayWidth(plainText(line)), view.columns) << plainText(line);
        }
        return textOf(lines);
    }
    std::string text(int columns, int rows)
    {
        view.columns = columns;
        view.rows = rows;
        return text();
    }

private:
    void ask(bool again)
    {
        std::map<std::string, PanelQuestion> known;
        std::swap(known, questions_);
        bool isNew = true;
        while (isNew) { // an answer may raise more questions
            isNew = false;
            for (const PanelQuestion& question : panel_->questions(view)) {
                const auto before = known.find(question.name);
                const bool isSame = questions_.contains(question.name)
                    ? questions_[question.name] == question
                    : before != known.end() && before->second == question && !(again && isRepeated(question));
                if (!isSame) {
                    ++asked;
                    panel_->take({.name = question.name,
                        .result = daemon_(question),
                        .time = view.now,
                        .clock = clock_,
                        .isChange = again && question.kind == PanelQuestion::Kind::Watch});
                    isNew = true;
                }
                questions_[question.name] = question;
            }
        }
    }

    static bool isRepeated(const PanelQuestion& question)
    {
        return question.interval > 0 || question.kind != PanelQuestion::Kind::Answer;
    }

    std::unique_ptr<Panel> panel_;
    Daemon daemon_;
    std::map<std::string, PanelQuestion> questions_; ///< as asked last, by name
    double clock_ = 100;
};

} // namespace meridal
