// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PageWindow.h"
#include "client/panels/PagedList.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/panels/RowCursor.h"
#include "client/views/DisksView.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <algorithm>
#include <string>

namespace meridal {

namespace {

constexpr double diskInterval = 10;    // s; the daemon looks every 30 s
constexpr double activityInterval = 2; // s

/// Health and activity of disks, and all attributes of the chosen one.
class DisksPanel final : public Panel {
public:
    std::string_view name() const override { return "disks"; }
    std::string_view title() const override { return "Disks"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        if (view.moment) {
            past_.addQuestion(questions, view);
            return questions;
        }
        disks_.addQuestions(questions);
        questions.push_back({.name = "activity", .method = method::machineState, .interval = activityInterval});
        // While somebody holds this key the daemon reads disks more often.
        questions.push_back(
            {.name = "health", .parameters = mask(RequestKey::SmartStatus), .kind = PanelQuestion::Kind::List});
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (answer.name == "activity") {
            const Value* disks = answer.result ? find(*answer.result, "disks") : nullptr;
            activity_ = disks ? *disks : Value();
        } else if (!past_.take(answer)) {
            disks_.take(answer);
        }
    }

    Lines lines(const PanelView& view) override
    {
        const std::string& complaint = view.moment ? past_.complaint() : disks_.complaint();
        if (!complaint.empty()) {
            return {{{Style::Warning, complaint}}};
        }
        if (view.moment) {
            return linesOfThen(view);
        }
        if (!disks_.isKnown()) {
            return {};
        }
        const Value disks = disks_.rows();
        setRows(disks, view);
        return isOpen_ && !cursor_.isEmpty() ? detailLines(disks, view) : listLines(disks, view);
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView& view) override
    {
        if (view.moment || cursor_.isEmpty()) {
            return KeyOutcome::notTaken();
        }
        if (key.kind == Key::Kind::Enter || (isOpen_ && key.kind == Key::Kind::Escape)) {
            isOpen_ = !isOpen_;
            return KeyOutcome::taken();
        }
        if (key.is('h') && !device_.empty()) {
            return KeyOutcome::wishing(OpenWish{.panel = "history", .argument = {{"series", "throughput/" + device_}}});
        }
        if (isOpen_) {
            return KeyOutcome::notTaken(); // the frame scrolls
        }
        if (key.kind == Key::Kind::Click) {
            return click(key);
        }
        return cursor_.press(key) ? KeyOutcome::taken() : KeyOutcome::notTaken();
    }

    std::vector<PanelKey> keys() const override
    {
        std::vector<PanelKey> keys = {
            {"h", "history", "what is recorded of the chosen disk's traffic, to zoom and pan in"}};
        keys.insert(keys.begin(),
            isOpen_ ? PanelKey{"Esc", "all disks", "back to the list of all disks"}
                    : PanelKey{"Enter", "attributes", "all that the chosen disk tells about itself"});
        return keys;
    }

private:
    void setRows(const Value& disks, const PanelView& view)
    {
        std::vector<std::string> names;
        for (const Value& disk : disks) {
            names.push_back(text(disk, "key").value_or(text(disk, "bsd").value_or("")));
        }
        cursor_.setRows(names, view.rows);
        device_ = names.empty() ? std::string() : text(disks[cursor_.chosen()], "bsd").value_or("");
    }

    Lines detailLines(const Value& disks, const PanelView& view) const
    {
        return diskLines(Value::array({disks[cursor_.chosen()]}), true, view.columns);
    }

    Lines listLines(const Value& disks, const PanelView& view)
    {
        Lines page = diskLines(disks, false, view.columns);
        lineOfDisk_.clear();
        for (std::size_t line = 1; line < page.size(); ++line) {
            if (!page[line].empty() && page[line].front().style == Style::Title) { // what is said of a disk is below it
                lineOfDisk_.push_back(static_cast<int>(line));
            }
        }
        const Lines activity = diskActivityLines(activity_, view.columns);
        if (!activity.empty()) {
            page.emplace_back();
            appendLines(page, activity);
        }
        const std::size_t chosen = cursor_.chosen();
        const auto line = chosen < lineOfDisk_.size() ? std::optional(lineOfDisk_[chosen]) : std::nullopt;
        return window_.cut(page, 1, line, view.rows, view.columns);
    }

    Lines linesOfThen(const PanelView& view) const
    {
        const Value* then = past_.of(view);
        const Value* disks = then ? find(*then, "disks") : nullptr;
        if (!then) {
            return {};
        }
        const Lines lines = disks ? diskActivityLines(*disks, view.columns) : Lines();
        return lines.empty() ? Lines{{{Style::Plain, "no disk was recorded at that moment"}}} : lines;
    }

    KeyOutcome click(const Key& key)
    {
        const auto line = window_.lineAt(key.row);
        const auto below = std::upper_bound(lineOfDisk_.begin(), lineOfDisk_.end(), line.value_or(0));
        if (below == lineOfDisk_.begin()) {
            return KeyOutcome::notTaken();
        }
        const auto place = static_cast<std::size_t>(below - lineOfDisk_.begin() - 1);
        isOpen_ = place == cursor_.chosen(); // a click chooses, and one on what is chosen opens it
        cursor_.choose(place);
        return KeyOutcome::taken();
    }

    PagedList disks_{{.name = "disks",
        .method = method::disksList,
        .list = "disks",
        .parameters = {{"attributes", true}},
        .interval = diskInterval}};
    PastMoment past_;
    Value activity_;
    RowCursor cursor_;
    std::string device_; ///< the chosen one's name now
    PageWindow window_;
    std::vector<int> lineOfDisk_; ///< among all lines of the list
    bool isOpen_ = false;         ///< the chosen one's attributes are shown
};

} // namespace

std::unique_ptr<Panel> makeDisksPanel() { return std::make_unique<DisksPanel>(); }

} // namespace meridal
