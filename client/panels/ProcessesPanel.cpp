// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/panels/ProcessFilter.h"
#include "client/panels/ProcessRows.h"
#include "client/panels/RowCursor.h"
#include "client/panels/TextEntry.h"
#include "client/screen/Format.h"
#include "client/views/MomentState.h"
#include "client/views/ProcessView.h"
#include "client/views/ProcessesView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <utility>

namespace meridal {

namespace {

using Shape = ProcessRows::Shape;

constexpr double processesInterval = 2; // s
constexpr std::size_t rowsAtOnce = 100; // asked for, in steps of as many
constexpr std::size_t mostRowsAsked = 1000;
constexpr int lowPanel = 9;       // rows below which there is no line to spare
constexpr double sameStart = 0.1; // s; of the same process told at two times, while clocks are adjusted
constexpr const char* detailsQuestion = "details";
constexpr std::string_view membersQuestion = "members ";

/// What can be sorted by, in the order of the keys.
constexpr std::array<const char*, 12> sortColumns = {"cpu", "footprint", "diskRead", "diskWritten", "received", "sent",
    "energyScore", "threads", "nice", "user", "name", "pid"};

/// All processes: sorted, filtered, as a tree or by application, and what can be done to them.
class ProcessesPanel final : public Panel {
public:
    std::string_view name() const override { return "processes"; }
    std::string_view title() const override { return "Processes"; }

    std::vector<PanelQuestion> questions(const PanelView&) const override;
    void take(const PanelAnswer& answer) override;
    Lines lines(const PanelView& view) override;
    KeyOutcome press(const Key& key, const PanelView& view) override;
    bool showsPast() const override { return true; }
    bool takesText() const override { return entry_.has_value(); }
    std::vector<PanelKey> keys() const override;
    void open(const Value& argument) override;

private:
    const char* sort() const { return sortColumns.at(sort_); }
    std::vector<std::string> shownColumns() const;
    Value parameters() const;
    std::size_t limit() const;
    void show(const PanelView& view);
    Lines detailLines(const PanelView& view) const;
    Lines linesOfThen(const PanelView& view) const;
    void takeDetails(const PanelAnswer& answer);
    Line headline(const PanelView& view) const;
    const ShownProcess* chosen() const;
    void pressInText(const Key& key);
    bool pressOnList(const Key& key);
    KeyOutcome pressOnDetails(const Key& key);
    KeyOutcome act(const Key& key, const ShownProcess& process);
    KeyOutcome click(const Key& key, const PanelView& view);
    void sortByTitle(int column);
    void toggle();
    void reset();

    ProcessRows rows_;
    std::vector<ShownProcess> shown_; ///< as drawn last
    RowCursor cursor_;
    Shape shape_ = Shape::Flat;
    std::size_t sort_ = 0;
    bool isReversed_ = false;
    std::string filter_;             ///< as typed
    std::optional<TextEntry> entry_; ///< while it is typed
    std::set<std::string> turned_;   ///< applications that are open, branches that are closed
    std::string header_;             ///< the titles, as drawn last
    std::string complaint_;
    std::optional<SeenProcess> detailed_; ///< the one of which everything is shown, in place of the list
    Value details_;
    PastMoment past_;
};

/// Lines above the first row: what is shown, unless there is no room for that, and the titles.
int linesAbove(const PanelView& view, bool isTyping) { return view.rows >= lowPanel || isTyping ? 2 : 1; }

std::vector<PanelQuestion> ProcessesPanel::questions(const PanelView& view) const
{
    std::vector<PanelQuestion> questions;
    if (view.moment) {
        past_.addQuestion(questions, view);
        return questions;
    }
    if (detailed_) {
        return {{.name = detailsQuestion,
            .method = method::processDetails,
            .parameters = {{"pid", detailed_->pid}},
            .interval = processesInterval}};
    }
    Value watched = parameters();
    watched["interval"] = processesInterval;
    watched["limit"] = limit();
    watched["grouped"] = shape_ == Shape::Groups;
    questions.push_back({.name = "processes",
        .method = method::processesWatch,
        .parameters = std::move(watched),
        .kind = PanelQuestion::Kind::Watch});
    for (const ShownProcess& each : shape_ == Shape::Groups ? shown_ : std::vector<ShownProcess>()) {
        if (turned_.contains(each.identity)) {
            Value members = parameters();
            members["group"] = each.seen.pid;
            members["limit"] = rowsAtOnce;
            questions.push_back({.name = std::string(membersQuestion) + std::to_string(each.seen.pid),
                .method = method::processesTable,
                .parameters = std::move(members),
                .interval = processesInterval});
        }
    }
    return questions;
}

std::vector<std::string> ProcessesPanel::shownColumns() const
{
    switch (shape_) {
    case Shape::Tree: // names need the room
        return {"pid", "user", "cpu", "footprint", "threads", "state", "name"};
    case Shape::Groups:
        return {"pid", "user", "processes", "cpu", "footprint", "diskRead", "diskWritten", "received", "sent",
            "energyScore", "name"};
    case Shape::Flat:
        break;
    }
    return {"pid", "user", "cpu", "footprint", "diskRead", "diskWritten", "received", "sent", "energyScore", "nice",
        "threads", "state", "name", "command"};
}

Value ProcessesPanel::parameters() const
{
    std::vector<std::string> columns = shownColumns();
    columns.emplace_back("start"); // tells a process from a later one of its number
    if (shape_ == Shape::Tree) {
        columns.emplace_back("parent");
    }
    return {{"columns", std::move(columns)}, {"sort", sort()}, {"reversed", isReversed_},
        {"filter", processFilterFrom(filter_)}};
}

/// A tree takes everybody; a list as many as have been looked at, and some.
std::size_t ProcessesPanel::limit() const
{
    const std::size_t wanted = cursor_.end() + rowsAtOnce / 2;
    const std::size_t steps = std::max<std::size_t>((wanted + rowsAtOnce - 1) / rowsAtOnce, 1);
    return shape_ == Shape::Tree ? mostRowsAsked : std::min(steps * rowsAtOnce, mostRowsAsked);
}

void ProcessesPanel::takeDetails(const PanelAnswer& answer)
{
    const bool isThis =
        answer.result && std::abs(number(*answer.result, "start").value_or(0) - detailed_->started) < sameStart;
    if (isThis) {
        details_ = *answer.result;
        complaint_.clear();
    } else {
        const bool hasEnded = answer.result || answer.result.error().code == ErrorCode::NotFound;
        complaint_ = hasEnded ? "It has ended; this is what was known." : printable(answer.result.error().message);
    }
}

void ProcessesPanel::take(const PanelAnswer& answer)
{
    if (past_.take(answer)) {
        return;
    }
    if (answer.name == detailsQuestion) {
        takeDetails(answer);
        return;
    }
    if (!answer.result) {
        complaint_ = printable(answer.result.error().message);
        return;
    }
    if (answer.name.starts_with(membersQuestion)) {
        rows_.takeMembers(
            std::strtoll(std::string(answer.name.substr(membersQuestion.size())).c_str(), nullptr, 10), *answer.result);
        return;
    }
    complaint_.clear();
    rows_.take(*answer.result, answer.isChange);
}

Line ProcessesPanel::headline(const PanelView& view) const
{
    if (entry_) {
        return entry_->line("Filter: ", view.columns);
    }
    if (!complaint_.empty()) {
        return {{Style::Warning, complaint_}};
    }
    const char* what = shape_ == Shape::Groups ? "applications" : "processes";
    Line line = {{Style::Title, fmt::format("{} {}", rows_.total(), what)},
        {Style::Plain, fmt::format(", by {}{}", sort(), isReversed_ ? " (reversed)" : "")}};
    if (shape_ == Shape::Tree) {
        line.push_back({Style::Plain, ", as a tree"});
    }
    if (!filter_.empty()) {
        line.push_back({Style::Warning, ", with " + filter_});
    }
    if (shape_ == Shape::Tree && rows_.total() > static_cast<std::int64_t>(mostRowsAsked)) {
        line.push_back({Style::Warning, fmt::format(", the first {} of them", mostRowsAsked)});
    }
    return line;
}

void ProcessesPanel::show(const PanelView& view)
{
    shown_ = rows_.shown(shape_, turned_);
    std::vector<std::string> names;
    for (const ShownProcess& each : shown_) {
        names.push_back(each.identity);
    }
    cursor_.setRows(names, view.rows - linesAbove(view, entry_.has_value()));
}

Lines ProcessesPanel::detailLines(const PanelView& view) const
{
    Lines lines = {{{Style::Faint, "Esc leads back to the list"}}};
    if (!complaint_.empty()) {
        lines.push_back({{Style::Warning, complaint_}});
    }
    appendLines(lines, details_.is_object() ? processDetailLines(details_, view.columns) : Lines());
    return lines;
}

/// Of a minute the largest are on record, with what is on record of them.
Lines ProcessesPanel::linesOfThen(const PanelView& view) const
{
    const Value* then = past_.of(view);
    if (!then) {
        return past_.complaint().empty() ? Lines() : Lines{{{Style::Warning, past_.complaint()}}};
    }
    const Value processes = processesOfMoment(*then);
    if (processes.at("processes").empty()) {
        return {{{Style::Plain, "no process was recorded at that moment"}}};
    }
    Lines lines = {{{Style::Title, "the largest processes of that minute"}}};
    appendLines(lines, processLines(processes, {"pid", "cpu", "footprint", "name"}, view.columns));
    return lines;
}

Lines ProcessesPanel::lines(const PanelView& view)
{
    if (view.moment) {
        return linesOfThen(view);
    }
    if (detailed_) {
        return detailLines(view);
    }
    if (!rows_.isKnown()) {
        return complaint_.empty() ? Lines() : Lines{{{Style::Warning, complaint_}}};
    }
    show(view);
    Value window = {{"processes", Value::array()}};
    for (std::size_t place = cursor_.first(); place < cursor_.end(); ++place) {
        window["processes"].push_back(shown_[place].row);
    }
    Lines table = processLines(window, shownColumns(), view.columns);
    header_ = table.size() > 1 ? plainText(table.front()) : "";
    const std::size_t line = cursor_.chosen() - cursor_.first() + 1;
    if (!cursor_.isEmpty() && line < table.size()) {
        table[line] = {{Style::Chosen, fitLeft(plainText(table[line]), view.columns)}};
    }
    Lines lines;
    if (linesAbove(view, entry_.has_value()) > 1) {
        lines.push_back(headline(view));
    }
    appendLines(lines, table);
    return lines;
}

const ShownProcess* ProcessesPanel::chosen() const
{
    return cursor_.chosen() < shown_.size() ? &shown_[cursor_.chosen()] : nullptr;
}

/// Another question, whose answer has nothing to do with what is known.
void ProcessesPanel::reset()
{
    rows_.clear();
    turned_.clear();
    cursor_ = RowCursor();
}

void ProcessesPanel::pressInText(const Key& key)
{
    const auto outcome = entry_->press(key);
    if (outcome == TextEntry::Outcome::Typing) {
        return;
    }
    if (outcome == TextEntry::Outcome::Done) {
        filter_ = entry_->text();
        reset();
    }
    entry_.reset();
}

KeyOutcome ProcessesPanel::press(const Key& key, const PanelView& view)
{
    if (view.moment) {
        return KeyOutcome::notTaken(); // what was cannot be acted upon
    }
    if (detailed_) {
        return pressOnDetails(key);
    }
    show(view);
    if (entry_) {
        pressInText(key);
        return KeyOutcome::taken();
    }
    if (key.kind == Key::Kind::Click) {
        return click(key, view);
    }
    if (cursor_.press(key) || pressOnList(key)) {
        return KeyOutcome::taken();
    }
    const ShownProcess* process = chosen();
    if (process && key.kind == Key::Kind::Enter) {
        detailed_ = process->seen;
        return KeyOutcome::taken();
    }
    return process ? act(key, *process) : KeyOutcome::notTaken();
}

/// What changes which processes are listed, and how.
bool ProcessesPanel::pressOnList(const Key& key)
{
    const auto isFunction = [&key](int number) { return key.kind == Key::Kind::Function && key.number == number; };
    const auto reshape = [this](Shape shape) {
        shape_ = shape_ == shape ? Shape::Flat : shape;
        reset();
    };
    if (key.is('/') || isFunction(4)) {
        entry_.emplace(filter_);
    } else if (key.is('t') || isFunction(5)) {
        reshape(Shape::Tree);
    } else if (key.is('g')) {
        reshape(Shape::Groups);
    } else if (key.kind == Key::Kind::Left || key.kind == Key::Kind::Right) {
        const std::size_t step = key.kind == Key::Kind::Right ? 1 : sortColumns.size() - 1;
        sort_ = (sort_ + step) % sortColumns.size();
    } else if (key.is('i')) {
        isReversed_ = !isReversed_;
    } else if (key.is('o')) {
        toggle();
    } else if (key.kind == Key::Kind::Escape && !filter_.empty()) {
        filter_.clear();
        reset();
    } else {
        return false;
    }
    return true;
}

void ProcessesPanel::toggle()
{
    const ShownProcess* process = chosen();
    if (process && shape_ != Shape::Flat && turned_.erase(process->identity) == 0) {
        turned_.insert(process->identity);
    }
}

KeyOutcome ProcessesPanel::pressOnDetails(const Key& key)
{
    if (key.kind == Key::Kind::Escape || key.kind == Key::Kind::Enter) {
        detailed_.reset();
        details_ = Value();
        complaint_.clear();
        return KeyOutcome::taken();
    }
    ShownProcess process = shownProcess(details_);
    process.seen = *detailed_;
    return act(key, process);
}

KeyOutcome ProcessesPanel::act(const Key& key, const ShownProcess& process)
{
    const bool isSignal = key.is('k') || (key.kind == Key::Kind::Function && key.number == 9);
    if (isSignal && !detailed_ && shape_ == Shape::Groups && integer(process.row, "processes").value_or(1) > 1) {
        return KeyOutcome::wishing(MessageWish{"Open the application with o and choose one of its processes."});
    }
    if (isSignal) {
        return KeyOutcome::wishing(SignalWish{.processes = {process.seen}, .signal = {}});
    }
    if (key.is('n')) {
        return KeyOutcome::wishing(
            ReniceWish{.process = process.seen, .nice = static_cast<int>(integer(process.row, "nice").value_or(0))});
    }
    return KeyOutcome::notTaken();
}

KeyOutcome ProcessesPanel::click(const Key& key, const PanelView& view)
{
    const int line = key.row - linesAbove(view, false);
    if (line == -1) {
        sortByTitle(key.column);
    } else if (line >= 0 && cursor_.first() + static_cast<std::size_t>(line) < cursor_.end()) {
        const std::size_t place = cursor_.first() + static_cast<std::size_t>(line);
        const bool isAgain = place == cursor_.chosen();
        cursor_.choose(place);
        if (isAgain && shape_ == Shape::Flat) {
            detailed_ = shown_[place].seen;
        } else if (isAgain) {
            toggle();
        }
    }
    return KeyOutcome::taken();
}

/// By the column whose title has been clicked at; by it again: the other way round.
void ProcessesPanel::sortByTitle(int column)
{
    const auto place = static_cast<std::size_t>(std::max(column, 0));
    for (std::size_t index = 0; index < sortColumns.size(); ++index) {
        const Lines titles =
            processLines({{"processes", {Value::object()}}}, {"state", sortColumns.at(index), "state"}, 0);
        std::string title = plainText(titles.front());
        title = title.substr(title.find_first_not_of(' ', std::string_view("STATE").size()));
        title = title.substr(0, title.find(' '));
        const std::size_t begin = header_.find(title);
        if (begin != std::string::npos && place >= begin && place < begin + title.size()) {
            isReversed_ = index == sort_ && !isReversed_;
            sort_ = index;
            return;
        }
    }
}

std::vector<PanelKey> ProcessesPanel::keys() const
{
    return {{"/", "filter",
                "show only some: part of a name or a command line, user:NAME, unit:NAME, pid:NUMBER, or a /regular "
                "expression/; Esc shows all again"},
        {"Enter", "details", "everything that is known of the chosen process; a second click does, too"},
        {"k", "signal", "send a signal to the chosen process, after a question; F9 does, too"},
        {"←→", "sort", "sort by the next column; a click on a title does, too"}, {"i", "", "the other way round"},
        {"t", "tree", "parents with their children, and back"},
        {"g", "group", "applications with the sums of all their processes, and back"},
        {"o", shape_ == Shape::Flat ? "" : "open", "open and close a branch of the tree, or an application"},
        {"n", "nice", "how nice the chosen process is to others, -20 to 19"}};
}

void ProcessesPanel::open(const Value& argument)
{
    if (const auto filter = text(argument, "filter")) {
        filter_ = printable(*filter);
        reset();
    }
}

} // namespace

std::unique_ptr<Panel> makeProcessesPanel() { return std::make_unique<ProcessesPanel>(); }

} // namespace meridal
