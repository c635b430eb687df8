// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/commands/Commands.h"
#include "client/commands/SeriesMatch.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

namespace {

// What shells ask for while somebody types: a name a line. It may not take long, nor say that there is no daemon.

constexpr double patience = 0.5; // s

struct CompleteOptions {
    std::string what = "series";
};

constexpr std::array callableMethods = {method::infoForPids, method::version, method::fps, method::exists,
    method::enableHierachy, method::disableHierachy, method::startRequestWithKey, method::stopRequestWithKey,
    method::smartTemps, method::startSMARTStatus, method::stopSMARTStatus, method::startSMARTTemps,
    method::stopSMARTTemps, method::refreshDHCP, method::toggleAirPortPower, method::setNetworkSet, method::setFanSet,
    method::setT2FanConfig, method::setT2FanSet, method::stopT2Fans, method::startT2Fans, method::finalizeT2Fans,
    method::setT2SafetyTemperature, method::sensors, method::armSensors, method::supportedSensors,
    method::supportedFans, method::status, method::historySeries, method::historySamples, method::bandwidthTotals,
    method::networkInterfaces, method::uptimeBoots, method::sensorsList, method::disksList, method::momentsAt,
    method::machineState, method::machineWatch, method::groupsHistory, method::groupsTotals, method::groupsWatch,
    method::processesTable, method::processesWatch, method::processDetails, method::machineInfo, method::batteryState,
    method::batteryHistory, method::batterySleeps};

/// A question whose first page has all that anybody wants to choose from.
struct NamesQuestion {
    std::string_view what;
    const char* method;
    const char* list;
    const char* entry;
};

constexpr std::array<NamesQuestion, 4> namesQuestions = {{{"series", method::historySeries, "series", "series"},
    {"interfaces", method::networkInterfaces, "interfaces", "interface"}, {"disks", method::disksList, "disks", "bsd"},
    {"applications", method::groupsTotals, "groups", "name"}}};

/// As "history" calls them, and each figure of those that have several.
std::vector<std::string> seriesNames(const Value& list)
{
    const std::vector<OfferedSeries> offered = offeredSeries(list);
    std::vector<std::string> names;
    for (std::size_t place = 0; place < offered.size(); ++place) {
        names.push_back(offered[place].label);
        const Value* figures = find(list[place], "values");
        for (const Value& figure : figures && figures->is_array() && figures->size() > 1 ? *figures : Value::array()) {
            names.push_back(offered[place].label + "/" + (figure.is_string() ? figure.get<std::string>() : ""));
        }
    }
    return names;
}

std::string linesOf(std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::string lines;
    for (const std::string& name : names) {
        lines += name.empty() ? "" : printable(name) + '\n';
    }
    return lines;
}

void askForNames(Session& session, const NamesQuestion& question)
{
    const Value parameters = question.what == "disks" ? Value::object() : Value{{"limit", 500}};
    session.client().call(
        question.method, Value::array({parameters}), [&session, &question](const Result<Value>& answer) {
            const Value* list = answer ? find(*answer, question.list) : nullptr;
            std::vector<std::string> names;
            if (list && list->is_array() && question.what == "series") {
                names = seriesNames(*list);
            } else if (list && list->is_array()) {
                for (const Value& each : *list) {
                    names.push_back(text(each, question.entry).value_or(""));
                }
            }
            session.conclude(linesOf(std::move(names)));
        });
}

int runComplete(Session& session, const CompleteOptions& options)
{
    if (options.what == "methods") {
        session.print(linesOf({callableMethods.begin(), callableMethods.end()}));
        return exitStatus::success;
    }
    const auto* const question = std::find_if(namesQuestions.begin(), namesQuestions.end(),
        [&options](const NamesQuestion& each) { return each.what == options.what; });
    session.client().setTimeout(patience);
    return session.runAnyhow([&session, question](const Result<void>& connected) {
        connected ? askForNames(session, *question) : session.finish(exitStatus::success);
    });
}

} // namespace

void addComplete(Grammar& grammar)
{
    auto [complete, options] = grammar.add("complete", "Names that can be typed, for shells", runComplete);
    complete.hide();
    complete.choice("what", options.what, {"series", "interfaces", "methods", "disks", "applications"}, "Of what");
}

} // namespace meridal
