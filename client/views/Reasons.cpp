// SPDX-License-Identifier: Apache-2.0
#include "client/views/Reasons.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/views/ReasonWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace meridal {

namespace {

struct ComplaintEntry {
    std::string_view name;
    Complaint complaint;
    void (*judge)(const Evidence&, Verdict&);
};
constexpr std::array<ComplaintEntry, 7> complaints = {
    {{"hot", Complaint::Hot, judgeHot}, {"loud", Complaint::Loud, judgeLoud}, {"slow", Complaint::Slow, judgeSlow},
        {"draining", Complaint::Draining, judgeDraining}, {"busy-disk", Complaint::BusyDisk, judgeBusyDisk},
        {"busy-network", Complaint::BusyNetwork, judgeBusyNetwork}, {"memory", Complaint::Memory, judgeMemory}}};

} // namespace

std::optional<Complaint> complaintNamed(std::string_view word)
{
    for (const ComplaintEntry& entry : complaints) {
        if (entry.name == word) {
            return entry.complaint;
        }
    }
    return std::nullopt;
}

std::vector<std::string> complaintNames()
{
    std::vector<std::string> names;
    for (const ComplaintEntry& entry : complaints) {
        names.emplace_back(entry.name);
    }
    return names;
}

Verdict verdictOf(Complaint complaint, const Evidence& evidence)
{
    Verdict verdict;
    if (!evidence.gap.empty()) {
        verdict.notKnown.push_back("what the machine did then (" + printable(evidence.gap) + ")");
        verdict.isKnown = false;
        return verdict;
    }
    for (const ComplaintEntry& entry : complaints) {
        if (entry.complaint == complaint) {
            entry.judge(evidence, verdict);
        }
    }
    return verdict;
}

// Words

std::optional<double> figureAt(const Value& from, std::initializer_list<std::string_view> path)
{
    const Value* place = &from;
    for (const std::string_view key : path) {
        place = find(*place, key);
        if (!place) {
            return std::nullopt;
        }
    }
    return place->is_number() && std::isfinite(place->get<double>()) ? std::optional(place->get<double>())
                                                                     : std::nullopt;
}

std::string coresText(double percent)
{
    constexpr double core = 100;
    return percent >= core ? fmt::format("{:.1f} cores", percent / core) : shareText(percent) + " of a core";
}

std::string shareText(double percent)
{
    constexpr double fine = 9.95;
    return std::abs(percent) < fine ? fmt::format("{:.1f} %", percent) : fmt::format("{:.0f} %", percent);
}

std::string degreesText(double degrees) { return fmt::format("{:.0f} °C", degrees); }

std::string_view tense(const Evidence& evidence, std::string_view now, std::string_view then)
{
    return evidence.isNow ? now : then;
}

std::optional<Lasting> lastingOf(const Evidence& evidence, const std::string& name, double threshold)
{
    constexpr int longestDip = 3;       // points: half a minute of the finest resolution is no end
    constexpr double oldestNewest = 90; // s: what is older does not tell about the moment
    const auto found = evidence.courses.find(name);
    if (found == evidence.courses.end() || found->second.points.empty()) {
        return std::nullopt;
    }
    const Course& course = found->second;
    if (evidence.time - course.points.back().first > std::max(oldestNewest, 2 * course.interval)) {
        return std::nullopt;
    }
    std::optional<double> since;
    int dip = 0;
    auto point = course.points.rbegin();
    for (double next = evidence.time; point != course.points.rend(); next = point++->first) {
        const bool isGap = since && next - point->first > (longestDip + 1) * course.interval;
        dip = point->second >= threshold ? 0 : dip + 1;
        if (isGap || dip > longestDip) {
            break;
        }
        if (dip == 0) {
            since = point->first - course.interval;
        }
    }
    return since ? std::optional(Lasting{*since, point == course.points.rend()}) : std::nullopt;
}

std::string lastingText(const Evidence& evidence, const std::optional<Lasting>& lasting)
{
    if (!lasting) {
        return "";
    }
    constexpr double minute = 60;
    double seconds = std::max(1.0, evidence.time - lasting->since);
    seconds = seconds > 2 * minute ? std::round(seconds / minute) * minute : std::round(seconds);
    return fmt::format(", for {}{}", lasting->isLonger ? "at least " : "", formatSpan(seconds));
}

std::optional<double> usualOf(const Evidence& evidence, const std::string& name)
{
    constexpr std::size_t fewest = 20;
    const auto ofDay = evidence.courses.find(name + "/day");
    const auto found = ofDay != evidence.courses.end() ? ofDay : evidence.courses.find(name);
    if (found == evidence.courses.end() || found->second.points.size() < fewest) {
        return std::nullopt;
    }
    std::vector<double> figures;
    for (const auto& [time, figure] : found->second.points) {
        figures.push_back(figure);
    }
    const auto middle = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
    std::nth_element(figures.begin(), middle, figures.end());
    return *middle;
}

std::string consumersText(const Consumers& consumers, AmountText amount, double least)
{
    constexpr std::size_t most = 3;
    constexpr double share = 0.1; // of the largest
    std::vector<std::string> parts;
    for (const Consumer& each : consumers) {
        if (parts.size() == most || each.amount < least || each.amount < share * consumers.front().amount) {
            break;
        }
        parts.push_back(fmt::format("{} ({})", printable(each.name), amount(each.amount)));
    }
    std::string text;
    for (std::size_t place = 0; place < parts.size(); ++place) {
        text += (place == 0 ? "" : place + 1 == parts.size() ? " and " : ", ") + parts[place];
    }
    return text;
}

std::string mostBy(std::string_view words, const Consumers& consumers, AmountText amount, double least)
{
    const std::string who = consumersText(consumers, amount, least);
    return who.empty() ? "" : fmt::format(" {} {}.", words, who);
}

void addRecent(const Evidence& evidence, std::string_view what, Verdict& verdict)
{
    constexpr double worthTelling = 0.1;
    double sum = 0;
    for (const Consumer& each : evidence.recent) {
        sum += each.amount;
    }
    if (sum <= 0 || evidence.recent.front().amount < worthTelling * sum) {
        return;
    }
    std::string parts;
    for (std::size_t place = 0; place < std::min<std::size_t>(evidence.recent.size(), 3); ++place) {
        const Consumer& each = evidence.recent[place];
        if (each.amount < worthTelling * sum) {
            break;
        }
        parts +=
            fmt::format("{}{} {}", parts.empty() ? "" : ", ", shareText(100 * each.amount / sum), printable(each.name));
    }
    verdict.remarks.push_back(fmt::format("Over the {} the {} went: {}.",
        evidence.isNow ? "last " + formatSpan(evidence.recentSpan) : formatSpan(evidence.recentSpan) + " around it",
        what, parts));
}

} // namespace meridal
