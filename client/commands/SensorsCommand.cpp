// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CheckQuery.h"
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/RepeatedView.h"
#include "client/commands/Rows.h"
#include "client/screen/Format.h"
#include "client/views/SensorsView.h"
#include "wire/Methods.h"

#include <array>
#include <functional>
#include <utility>

namespace meridal {

namespace {

constexpr const char* sensorsExamples =
    R"(The bar shows where a value stands between the sensor's limits; without limits,
between the lowest and the highest value ever seen. Power is an average over at
least 2 s, for users other than root to a tenth of a watt.

Examples:
  meridalctl sensors
  meridalctl sensors --watch
  meridalctl sensors --json | jq '.sensors[] | select(.kind == "fan")'
)";

constexpr double watchInterval = 2; // s; the daemon's own rhythm

struct SensorsOptions {
    bool watch = false;
    std::size_t refreshes = 0; ///< with it, stop after so many; 0: never
    RowsForm form;
    bool check = false; ///< only say whether they are fine
};

constexpr std::array<const char*, 12> sensorColumns = {
    "chip", "name", "key", "kind", "unit", "value", "alarm", "low", "high", "critical", "lowest", "highest"};

void askSensors(Session& session, std::function<void(const Value& sensors)> use)
{
    askPages(session, {.method = method::sensorsList, .list = "sensors"},
        [use = std::move(use)](const Value& sensors, const Value&) { use(sensors); });
}

int runSensors(Session& session, const SensorsOptions& options)
{
    if (options.check) {
        return runCheckOf(session, {"sensors", "fans"}, options.form.json);
    }
    if (options.watch) {
        RepeatedView view(session,
            {.ask =
                    [&](const auto& use) {
                        askSensors(session, [use](const Value& sensors) { use({{"sensors", sensors}}); });
                    },
                .list = "sensors",
                .lines = [](const Value& answer, int room) { return sensorLines(*find(answer, "sensors"), room); },
                .interval = watchInterval,
                .json = options.form.json,
                .refreshes = options.refreshes});
        return session.runUntilInterrupted([&view] { view.start(); });
    }
    return session.run([&] {
        askSensors(session, [&](const Value& sensors) {
            concludeRows(session, options.form, {{{"sensors", sensors}}, "sensors", sensorColumns, [&](int room) {
                                                     return sensorLines(sensors, room);
                                                 }});
        });
    });
}

int runFans(Session& session, const RowsForm& form)
{
    return session.run([&] {
        askSensors(session, [&](const Value& sensors) {
            concludeRows(session, form, {{{"fans", fansOf(sensors)}}, "fans", sensorColumns, [&](int room) {
                                             return fanLines(sensors, room);
                                         }});
        });
    });
}

} // namespace

void addSensors(Grammar& grammar)
{
    auto [sensors, options] = grammar.add(
        "sensors", "Temperatures, voltages, currents, powers, humidities and fans, with their alarms", runSensors);
    sensors.examples(sensorsExamples);
    sensors.flag("--watch", options.watch, "Show them again every 2 seconds, until interrupted");
    sensors.count("--refreshes", options.refreshes, "With --watch, stop after so many, as text");
    sensors.need("--refreshes", "--watch");
    addRowsOptions(sensors, options.form);
    sensors.flag("--check", options.check, "Say whether they are fine, as \"check sensors fans\"");
    sensors.exclude("--check", "--watch");
    sensors.exclude("--csv", "--watch");
    sensors.exclude("--csv", "--check");

    auto [fans, form] = grammar.add("fans", "The fans and how fast they turn", runFans);
    addRowsOptions(fans, form);
}

} // namespace meridal
