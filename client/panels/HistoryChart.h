// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/Panel.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// One recorded figure: which, and what people call it.
struct ChartFigure {
    std::string series; ///< "memory"
    std::string figure; ///< "used"; empty: all of the series
    std::string label;  ///< "memory/used"

    bool operator==(const ChartFigure&) const = default;
};

/// Recorded figures over a stretch of time that people zoom into and pan along: a plot a unit, with the lowest and the highest
/// behind each mean where the record has them.
class HistoryChart {
public:
    /// What to draw; the stretch of time stays.
    void choose(std::vector<ChartFigure> figures);

    void addQuestions(std::vector<PanelQuestion>& questions, const PanelView& view) const;
    /// Whether the answer was to one of its questions.
    bool take(const PanelAnswer& answer);
    /// None while nothing has come.
    Lines lines(const PanelView& view);

    /// Whether the key was one of the chart's.
    bool press(const Key& key, const PanelView& view);
    static std::vector<PanelKey> keys();
    /// The moment in the middle of what is shown, s since 1970.
    double middle(const PanelView& view) const;

private:
    struct Stretch {
        double from = 0; ///< s since 1970
        double until = 0;
        double span() const { return until - from; }
    };
    /// One series' samples in pages, the newest first.
    struct Pages {
        struct Page {
            Value before; ///< where it ends; null of the newest
            Value answer;
        };
        std::vector<Page> pages = std::vector<Page>(1);
        std::string complaint;
    };

    Stretch stretch(const PanelView& view) const;
    void show(Stretch wanted, const PanelView& view);
    void zoom(double factor, double around, const PanelView& view);
    void pan(double share, const PanelView& view);
    void click(const Key& key, const PanelView& view);
    std::optional<double> timeAt(const Key& key, const PanelView& view) const;
    Line titleLine(const Stretch& shown) const;
    Value samplesOf(const std::string& series) const;

    std::vector<ChartFigure> figures_;
    std::map<std::string, Pages> samples_; ///< by series
    double span_ = 3600;                   ///< s
    std::optional<double> until_;          ///< s since 1970; none: up to now, or around the moment that is looked at
    std::optional<double> mark_;           ///< the first of two clicks
    Lines shown_;                          ///< for finding a click's time
};

} // namespace meridal
