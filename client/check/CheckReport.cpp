// SPDX-License-Identifier: Apache-2.0
#include "client/check/CheckReport.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostHeadlineFindings = 3;
constexpr std::size_t mostTopicFindings = 10;
constexpr std::size_t mostCheckNotes = 10;
constexpr std::size_t mostCheckFigures = 100; // a plugin's first line is cut by those that read it

std::string capitals(std::string_view word)
{
    std::string text(word);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return text;
}

std::string sentenceOf(const CheckFinding& finding) { return finding.name + ": " + finding.text; }

std::vector<const CheckFinding*> worstFirst(const std::vector<const CheckedTopic*>& topics)
{
    std::vector<const CheckFinding*> findings;
    for (const CheckedTopic* topic : topics) {
        for (const CheckFinding& finding : topic->findings) {
            findings.push_back(&finding);
        }
    }
    std::stable_sort(findings.begin(), findings.end(),
        [](const CheckFinding* first, const CheckFinding* second) { return first->state > second->state; });
    return findings;
}

/// What stands behind the bar ends the text for those who read it.
std::string withoutBar(std::string text)
{
    std::replace(text.begin(), text.end(), '|', '/');
    return text;
}

std::string limitText(const std::optional<double>& limit, bool isBelow)
{
    return limit ? fmt::format("{:.6g}{}", *limit, isBelow ? ":" : "") : std::string();
}

/// 'label'=value;warning;critical with the quotes that a label with blanks needs.
std::string performanceText(const CheckFigure& figure)
{
    std::string label = figure.label;
    std::replace_if(
        label.begin(), label.end(), [](char letter) { return letter == '\'' || letter == '=' || letter == '|'; }, '_');
    const std::string text = fmt::format("'{}'={:.6g}{};{};{}", label, figure.value, figure.unit,
        limitText(figure.warning, figure.isBelow), limitText(figure.critical, figure.isBelow));
    return text.substr(0, text.find_last_not_of(';') + 1);
}

std::string figuresText(const CheckReport& report)
{
    std::string text;
    std::size_t count = 0;
    for (const CheckedTopic& topic : report.topics) {
        for (const CheckFigure& figure : topic.figures) {
            if (count++ < mostCheckFigures) {
                text += ' ' + performanceText(figure);
            }
        }
    }
    return text.empty() ? text : " |" + text;
}

} // namespace

std::string_view wordOf(CheckState state)
{
    switch (state) {
    case CheckState::Fine:
        return "ok";
    case CheckState::Warning:
        return "warning";
    case CheckState::Critical:
        return "critical";
    case CheckState::Unknown:
        break;
    }
    return "unknown";
}

int exitStatusOf(CheckState state)
{
    switch (state) {
    case CheckState::Fine:
        return 0;
    case CheckState::Warning:
        return 1;
    case CheckState::Critical:
        return 2;
    case CheckState::Unknown:
        break;
    }
    return 3;
}

CheckState CheckedTopic::state() const
{
    CheckState worst = CheckState::Fine;
    for (const CheckFinding& finding : findings) {
        worst = std::max(worst, finding.state);
    }
    return worst;
}

CheckState CheckReport::state() const
{
    CheckState worst = CheckState::Fine;
    for (const CheckedTopic& topic : topics) {
        worst = std::max(worst, topic.state());
    }
    return worst;
}

CheckReport reportWithoutDaemon(const std::string& why)
{
    return {{{.topic = "daemon",
        .summary = "nothing is known of this machine",
        .findings = {{"meridald", "connection", CheckState::Unknown, "meridald", why}},
        .things = {"meridald"}}}};
}

std::string checkHeadline(const CheckReport& report, bool withFigures)
{
    std::vector<const CheckedTopic*> topics;
    std::string words;
    for (const CheckedTopic& topic : report.topics) {
        topics.push_back(&topic);
        words += (words.empty() ? "" : "; ") + topic.summary;
    }
    const auto findings = worstFirst(topics);
    if (!findings.empty()) {
        words.clear();
        for (std::size_t place = 0; place < std::min(findings.size(), mostHeadlineFindings); ++place) {
            words += (place > 0 ? "; " : "") + sentenceOf(*findings[place]);
        }
        if (findings.size() > mostHeadlineFindings) {
            words += fmt::format("; and {} more", findings.size() - mostHeadlineFindings);
        }
    }
    return fmt::format("MERIDAL {} - {}{}", capitals(wordOf(report.state())), withoutBar(std::move(words)),
        withFigures ? figuresText(report) : "");
}

std::string findingLine(const CheckFinding& finding)
{
    const bool isNamedOtherwise = finding.thing != finding.name && !finding.thing.empty();
    return withoutBar(fmt::format("{} {}{}: {}", capitals(wordOf(finding.state)), finding.name,
        isNamedOtherwise ? " (" + printable(finding.thing) + ")" : "", finding.text));
}

std::vector<std::string> topicLines(const CheckedTopic& topic)
{
    std::vector<std::string> lines = {
        withoutBar(fmt::format("{}: {} - {}", topic.topic, capitals(wordOf(topic.state())), topic.summary))};
    const auto findings = worstFirst({&topic});
    const std::size_t shown = findings.size() > mostTopicFindings ? mostTopicFindings - 1 : findings.size();
    for (std::size_t place = 0; place < shown; ++place) {
        lines.push_back("  " + findingLine(*findings[place]));
    }
    if (shown < findings.size()) {
        lines.push_back(fmt::format("  and {} more", findings.size() - shown));
    }
    for (std::size_t place = 0; place < std::min(topic.notes.size(), mostCheckNotes); ++place) {
        lines.push_back(withoutBar("  " + topic.notes[place]));
    }
    return lines;
}

Value jsonOf(const CheckReport& report)
{
    Value topics = Value::array();
    for (const CheckedTopic& topic : report.topics) {
        Value findings = Value::array();
        for (const CheckFinding* finding : worstFirst({&topic})) {
            findings.push_back({{"key", finding->thing}, {"aspect", finding->aspect}, {"name", finding->name},
                {"state", wordOf(finding->state)}, {"text", finding->text}});
        }
        topics.push_back({{"topic", topic.topic}, {"state", wordOf(topic.state())}, {"summary", topic.summary},
            {"findings", std::move(findings)}, {"notes", topic.notes}});
    }
    return {{"state", wordOf(report.state())}, {"topics", std::move(topics)}};
}

} // namespace meridal
