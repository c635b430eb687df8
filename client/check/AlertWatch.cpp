// SPDX-License-Identifier: Apache-2.0
#include "client/check/AlertWatch.h"

#include <fmt/format.h>

#include <algorithm>

namespace meridal {

namespace {

constexpr std::size_t mostAlertLines = 20;

void addAlertLine(std::string& text, std::size_t& count, const std::string& line)
{
    ++count;
    if (count <= mostAlertLines) {
        text += line + '\n';
    } else if (count == mostAlertLines + 1) {
        text += "and more\n";
    }
}

} // namespace

CheckState AlertWatch::stateOf(const Topic& told)
{
    CheckState worst = CheckState::Fine;
    for (const auto& [key, each] : told) {
        worst = std::max(worst, each.finding.state);
    }
    return worst;
}

AlertWatch::Changes AlertWatch::compare(Topic& told, const CheckedTopic& now, int after)
{
    std::map<Key, const CheckFinding*> found;
    for (const CheckFinding& finding : now.findings) {
        const Key key(finding.thing, finding.aspect);
        found[key] = &finding;
        const auto [entry, isNew] = told.try_emplace(key, Told{finding});
        if (isNew) { // nobody has been told
            entry->second.finding.state = CheckState::Fine;
            entry->second.finding.count = 0;
        }
    }
    Changes changes;
    for (auto each = told.begin(); each != told.end();) {
        CheckFinding& known = each->second.finding;
        const auto match = found.find(each->first);
        const CheckFinding* finding = match == found.end() ? nullptr : match->second;
        const CheckState state = finding ? finding->state : CheckState::Fine;
        const bool mayCome = now.isSettling && !now.things.contains(known.thing);
        if (!finding && (mayCome || now.awaited.contains(known.thing))) {
            ++each;
            continue;
        }
        const bool isMore = finding && known.state == state && finding->count > known.count;
        if (state == known.state && !isMore) {
            each->second.differing = 0;
            known.text = finding ? finding->text : known.text;
        } else if (++each->second.differing >= after) {
            each->second.differing = 0;
            changes.isWorse = changes.isWorse || isMore || state > known.state;
            if (finding) {
                known = *finding;
            } else {
                changes.ended.push_back(fmt::format("{}: {}: {}",
                    now.things.contains(known.thing) ? "over" : "not there any more", known.name, known.text));
                known.state = CheckState::Fine;
            }
        }
        const bool isOver = known.state == CheckState::Fine && each->second.differing == 0;
        each = isOver ? told.erase(each) : std::next(each);
    }
    return changes;
}

std::vector<Alert> AlertWatch::look(const CheckReport& report, int after)
{
    std::vector<Alert> alerts;
    for (const CheckedTopic& now : report.topics) {
        Topic& told = topics_[now.topic];
        const CheckState before = stateOf(told);
        const Changes changes = compare(told, now, std::max(after, 1));
        const CheckState state = stateOf(told);
        if (state == before && !changes.isWorse) {
            continue;
        }
        Alert alert{.topic = now.topic, .state = state, .before = before, .text = {}};
        std::size_t lines = 0;
        for (const auto& [key, each] : told) {
            if (each.finding.state != CheckState::Fine) {
                addAlertLine(alert.text, lines, findingLine(each.finding));
            }
        }
        for (const std::string& line : changes.ended) {
            addAlertLine(alert.text, lines, line);
        }
        if (lines == 0) {
            alert.text = now.summary + '\n';
        }
        alerts.push_back(std::move(alert));
    }
    return alerts;
}

} // namespace meridal
