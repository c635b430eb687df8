// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PagedList.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/views/HistoryView.h"
#include "client/views/NetworkView.h"
#include "client/views/TopView.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double interfaceInterval = 2; // s, as the daemon reads them
constexpr double interfaceCourse = 600; // s
constexpr int samplesOfInterface = 100; // of 6 s
constexpr std::size_t mostNetworkRows = 20;
constexpr double longestPause = 5; // s between two lists; they come every 2 s
constexpr std::string_view interfaceSeries = "network/";
constexpr std::string_view trafficName = "processes";

/// What was recorded of both directions together, oldest first.
std::vector<PlotPoint> bothDirections(const Value& answer, double now)
{
    std::vector<PlotPoint> both = historyPoints(answer, 0, now);
    const std::vector<PlotPoint> other = historyPoints(answer, 1, now);
    for (std::size_t point = 0; point < both.size() && both.size() == other.size(); ++point) {
        both[point].value += other[point].value;
    }
    return both;
}

TopFrame noTraffic()
{
    TopFrame frame;
    frame.list = RequestKey::Network;
    return frame;
}

/// moments.at's account of an interface as network.interfaces tells it.
Value interfaceOfThen(const Value& entry)
{
    Value interface = {{"interface", text(entry, "interface").value_or("?")}, {"link", ""}};
    if (const Value* rates = find(entry, "rates")) {
        put(interface, "downloadRate", number(*rates, "received"));
        put(interface, "uploadRate", number(*rates, "sent"));
    }
    if (text(entry, "station")) {
        interface["wifi"] = {
            {"name", text(entry, "wifi").value_or("")}, {"bssid", text(entry, "station").value_or("")}};
    }
    return interface;
}

/// Interfaces with their rates and networks, and the processes that the traffic belongs to.
class NetworkPanel final : public Panel {
public:
    std::string_view name() const override { return "network"; }
    std::string_view title() const override { return "Network"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        if (view.moment) {
            past_.addQuestion(questions, view);
            return questions;
        }
        interfaces_.addQuestions(questions);
        questions.push_back({.name = std::string(trafficName),
            .parameters = mask(RequestKey::Network),
            .kind = PanelQuestion::Kind::List});
        for (const Value& interface : interfaces_.rows()) {
            const std::string series = std::string(interfaceSeries) + text(interface, "interface").value_or("");
            questions.push_back({.name = series,
                .method = method::historySamples,
                .parameters = {{"series", series}, {"limit", samplesOfInterface}}});
        }
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (past_.take(answer)) {
            return;
        }
        if (answer.name == trafficName) {
            takeTraffic(answer);
        } else if (interfaces_.take(answer)) {
            takeRates(answer);
        } else if (answer.name.starts_with(interfaceSeries) && answer.result) { // the loopback is not recorded
            courses_.fill(
                std::string(answer.name.substr(interfaceSeries.size())), bothDirections(*answer.result, answer.time));
        }
    }

    Lines lines(const PanelView& view) override
    {
        const std::string& complaint = view.moment ? past_.complaint() : interfaces_.complaint();
        if (!complaint.empty()) {
            return {{{Style::Warning, complaint}}};
        }
        if (view.moment) {
            return linesOfThen(view);
        }
        if (!interfaces_.isKnown()) {
            return {};
        }
        Lines lines;
        if (!isOfProcesses_) {
            const Value* primary = find(interfaces_.firstAnswer(), "primary");
            const Value all = {{"interfaces", interfaces_.rows()}, {"primary", primary ? *primary : Value()}};
            lines = networkLines(all, view.columns, &courses_);
            lines.emplace_back();
        }
        appendLines(lines, tableLines(traffic_, mostNetworkRows, view.columns));
        return lines;
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView&) override
    {
        if (key.is('t')) {
            isOfProcesses_ = !isOfProcesses_;
            return KeyOutcome::taken();
        }
        return KeyOutcome::notTaken();
    }

    std::vector<PanelKey> keys() const override
    {
        return {{"t", isOfProcesses_ ? "interfaces" : "processes only", "show the interfaces, or leave them out"}};
    }

private:
    void takeRates(const PanelAnswer& answer)
    {
        const Value* list = answer.result ? find(*answer.result, "interfaces") : nullptr;
        for (const Value& interface : list && list->is_array() ? *list : Value::array()) {
            const auto down = number(interface, "downloadRate");
            const auto up = number(interface, "uploadRate");
            if (down && up) {
                courses_.add(text(interface, "interface").value_or(""), answer.time, *down + *up);
            }
        }
    }

    /// Bytes since the envelope before, which the first one has not, nor one after a while without any.
    void takeTraffic(const PanelAnswer& answer)
    {
        if (answer.result) {
            const double seconds = answer.clock - latestTraffic_;
            const bool goesOn = traffic_.table && seconds < longestPause;
            traffic_.table = readTopTable(
                RequestKey::Network, *answer.result, goesOn ? std::optional(seconds) : std::nullopt, answer.time);
            latestTraffic_ = answer.clock;
        }
    }

    Lines linesOfThen(const PanelView& view) const
    {
        const Value* then = past_.of(view);
        const Value* entries = then ? find(*then, "network") : nullptr;
        if (!then) {
            return {};
        }
        Value interfaces = Value::array();
        for (const Value& entry : entries && entries->is_array() ? *entries : Value::array()) {
            interfaces.push_back(interfaceOfThen(entry));
        }
        return interfaces.empty() ? Lines{{{Style::Plain, "no traffic was recorded at that moment"}}}
                                  : networkLines({{"interfaces", std::move(interfaces)}}, view.columns);
    }

    PagedList interfaces_{{.name = "interfaces",
        .method = method::networkInterfaces,
        .list = "interfaces",
        .entry = "index",
        .interval = interfaceInterval}};
    PastMoment past_;
    RecentCourses courses_{interfaceCourse};
    TopFrame traffic_ = noTraffic();
    double latestTraffic_ = 0; ///< s of the clock that never steps
    bool isOfProcesses_ = false;
};

} // namespace

std::unique_ptr<Panel> makeNetworkPanel() { return std::make_unique<NetworkPanel>(); }

} // namespace meridal
