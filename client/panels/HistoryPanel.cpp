// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/HistoryChart.h"
#include "client/panels/PageWindow.h"
#include "client/panels/PagedList.h"
#include "client/panels/Panels.h"
#include "client/panels/RowCursor.h"
#include "client/panels/TextEntry.h"
#include "client/screen/TextTable.h"
#include "client/views/SeriesLabels.h"
#include "wire/Methods.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace meridal {

namespace {

/// A figure of the record as a row of the list.
struct FigureRow {
    ChartFigure figure;
    std::string unit;
};

std::vector<FigureRow> figureRows(const Value& all)
{
    const std::vector<OfferedSeries> names = offeredSeries(all);
    std::vector<FigureRow> rows;
    for (std::size_t place = 0; place < names.size(); ++place) {
        const std::string unit = printable(text(all[place], "unit").value_or(""));
        const Value* values = find(all[place], "values");
        const std::size_t count = values && values->is_array() ? values->size() : 0;
        for (std::size_t value = 0; value < count; ++value) {
            const std::string figure = (*values)[value].is_string() ? (*values)[value].get<std::string>() : "";
            const std::string label = printable(names[place].label + (count > 1 ? "/" + figure : ""));
            rows.push_back({{names[place].series, count > 1 ? figure : "", label}, unit});
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const FigureRow& first, const FigureRow& second) {
        return lowercase(first.figure.label) < lowercase(second.figure.label);
    });
    return rows;
}

/// Everything that is recorded, as a list to choose from, and what was chosen as plots.
class HistoryPanel final : public Panel {
public:
    std::string_view name() const override { return "history"; }
    std::string_view title() const override { return "History"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        series_.addQuestions(questions);
        if (isChart_) {
            chart_.addQuestions(questions, view);
        }
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (!chart_.take(answer) && series_.take(answer)) {
            rows_ = figureRows(series_.rows());
            openWanted();
        }
    }

    Lines lines(const PanelView& view) override
    {
        if (isChart_) {
            return chart_.lines(view);
        }
        if (!series_.complaint().empty()) {
            return {{{Style::Warning, series_.complaint()}}};
        }
        return series_.isKnown() ? listLines(view) : Lines{};
    }

    bool showsPast() const override { return true; }
    bool takesText() const override { return entry_.has_value(); }

    KeyOutcome press(const Key& key, const PanelView& view) override
    {
        const bool isTaken = entry_ ? type(key) : isChart_ ? pressInChart(key, view) : pressInList(key, view);
        if (isChart_ && key.is('o')) {
            return KeyOutcome::wishing(MomentWish{chart_.middle(view)});
        }
        return isTaken ? KeyOutcome::taken() : KeyOutcome::notTaken();
    }

    std::vector<PanelKey> keys() const override
    {
        if (isChart_) {
            std::vector<PanelKey> keys = HistoryChart::keys();
            keys.insert(keys.begin(), {"Esc", "list", "back to the list of all that is recorded"});
            keys.push_back({"o", "all then", "show all panels as they were in the middle of this"});
            return keys;
        }
        return {{"Enter", "show", "draw what is marked, or else the chosen figure"},
            {"x", "mark", "draw this one together with others"}, {"c", "clear", "mark none, and show all"},
            {"/", "filter", "only names that have these words in them"}};
    }

    /// {"series": "sensors/TC0P"}: what is recorded of that; {"figure": ...} only one of its figures.
    void open(const Value& argument) override
    {
        wanted_ = argument;
        openWanted();
    }

private:
    void openWanted()
    {
        const auto series = text(wanted_, "series");
        const auto figure = text(wanted_, "figure");
        std::vector<ChartFigure> figures;
        for (const FigureRow& row : rows_) {
            if (row.figure.series == series && (!figure || row.figure.figure.empty() || row.figure.figure == figure)) {
                figures.push_back(row.figure);
            }
        }
        if (!figures.empty()) {
            wanted_ = Value();
            show(std::move(figures));
        }
    }

    void show(std::vector<ChartFigure> figures)
    {
        chart_.choose(std::move(figures));
        isChart_ = true;
    }

    std::vector<const FigureRow*> filtered() const
    {
        const std::string wanted = lowercase(entry_ ? entry_->text() : filter_);
        std::vector<const FigureRow*> rows;
        for (const FigureRow& row : rows_) {
            if (lowercase(row.figure.label).find(wanted) != std::string::npos) {
                rows.push_back(&row);
            }
        }
        return rows;
    }

    void setRows(const PanelView& view)
    {
        std::vector<std::string> names;
        for (const FigureRow* row : filtered()) {
            names.push_back(row->figure.label);
        }
        constexpr int headings = 2;
        cursor_.setRows(names, view.rows - headings);
    }

    Line heading(std::size_t shown, const PanelView& view) const
    {
        if (entry_) {
            return entry_->line("filter: ", view.columns);
        }
        Line line{{Style::Faint, std::to_string(shown) + " of " + std::to_string(rows_.size()) + " figures"}};
        if (!filter_.empty()) {
            line.push_back({Style::Title, "  filter: " + filter_});
        }
        if (!marked_.empty()) {
            line.push_back({Style::Title, "  " + std::to_string(marked_.size()) + " marked"});
        }
        return line;
    }

    Lines listLines(const PanelView& view)
    {
        setRows(view);
        const auto rows = filtered();
        constexpr int nameColumns = 60;
        TextTable table(
            {{"", 2}, {.title = "FIGURE", .width = nameColumns, .gap = 1, .least = 12}, {"UNIT", 5}}, view.columns);
        for (const FigureRow* row : rows) {
            table.add({{Style::Title, marked_.contains(row->figure.label) ? "*" : ""}, row->figure.label,
                {Style::Faint, row->unit}});
        }
        Lines page{heading(rows.size(), view)};
        appendLines(page, table.lines());
        constexpr int headings = 2;
        const auto chosen =
            cursor_.isEmpty() ? std::nullopt : std::optional(static_cast<int>(cursor_.chosen()) + headings);
        return window_.cut(page, headings, chosen, view.rows, view.columns);
    }

    bool type(const Key& key)
    {
        const TextEntry::Outcome outcome = entry_->press(key);
        cursor_.choose(std::size_t{0}); // what was chosen before is mostly not among the rest
        if (outcome == TextEntry::Outcome::Done) {
            filter_ = entry_->text();
        }
        if (outcome != TextEntry::Outcome::Typing) {
            entry_.reset();
        }
        return true;
    }

    bool pressInChart(const Key& key, const PanelView& view)
    {
        if (chart_.press(key, view)) {
            return true;
        }
        const bool leaves = key.kind == Key::Kind::Escape || key.kind == Key::Kind::Backspace;
        isChart_ = !leaves;
        return leaves;
    }

    bool pressInList(const Key& key, const PanelView& view)
    {
        setRows(view);
        if (key.kind == Key::Kind::Enter) {
            showMarked();
        } else if (key.is('x')) {
            toggle();
        } else if (key.is('c')) {
            marked_.clear();
            filter_.clear();
        } else if (key.is('/')) {
            entry_.emplace(filter_);
        } else if (key.kind == Key::Kind::Click) {
            choose(key);
        } else {
            return cursor_.press(key);
        }
        return true;
    }

    /// A click chooses, and one on what is chosen opens it.
    void choose(const Key& key)
    {
        constexpr int headings = 2;
        const auto line = window_.lineAt(key.row);
        if (line && *line >= headings) {
            const auto place = static_cast<std::size_t>(*line - headings);
            place == cursor_.chosen() ? showMarked() : cursor_.choose(place);
        }
    }

    void toggle()
    {
        if (!cursor_.isEmpty() && marked_.erase(cursor_.name()) == 0) {
            marked_.insert(cursor_.name());
        }
    }

    void showMarked()
    {
        std::vector<ChartFigure> figures;
        for (const FigureRow& row : rows_) {
            if (marked_.empty() ? row.figure.label == cursor_.name() : marked_.contains(row.figure.label)) {
                figures.push_back(row.figure);
            }
        }
        if (!figures.empty()) {
            show(std::move(figures));
        }
    }

    PagedList series_{{.name = "series",
        .method = method::historySeries,
        .list = "series",
        .entry = "series",
        .parameters = {{"limit", 500}}}};
    std::vector<FigureRow> rows_;
    std::set<std::string> marked_; ///< labels
    std::string filter_;
    std::optional<TextEntry> entry_; ///< while a filter is typed
    RowCursor cursor_;
    PageWindow window_;
    HistoryChart chart_;
    bool isChart_ = false;
    Value wanted_; ///< by somebody from elsewhere, until the list is there
};

} // namespace

std::unique_ptr<Panel> makeHistoryPanel() { return std::make_unique<HistoryPanel>(); }

} // namespace meridal
