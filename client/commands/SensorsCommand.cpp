#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/screen/Format.h"
#include "client/screen/Screen.h"
#include "client/screen/Terminal.h"
#include "client/screen/TextTable.h"
#include "client/views/SensorsView.h"
#include "wire/Methods.h"

#include <csignal>
#include <functional>
#include <memory>
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
    bool json = false;
};

struct FansOptions {
    bool json = false;
};

void askSensors(Session& session, std::function<void(const Value& sensors)> use)
{
    askPages(session, {.method = method::sensorsList, .list = "sensors"},
        [use = std::move(use)](const Value& sensors, const Value&) { use(sensors); });
}

/// Asks every two seconds; on the whole terminal where there is one, else block after block.
class WatchedSensors {
public:
    WatchedSensors(Session& session, const SensorsOptions& options) : session_(session), options_(options) { }

    void start()
    {
        const bool isLive = session_.medium().isTerminal && !options_.json && options_.refreshes == 0;
        screen_ = isLive ? Screen::open(session_.medium().isColoured) : nullptr;
        if (screen_) {
            constexpr int standardInput = 0;
            resizes_ = session_.loop().watchSignals({SIGWINCH}, [this] {
                screen_->resized();
                paint();
            });
            keys_ = session_.loop().watchReadable(standardInput, [this] { readKeys(); });
        }
        ask();
    }

private:
    void ask()
    {
        askSensors(session_, [this](const Value& sensors) {
            next_ = session_.loop().after(watchInterval, [this] { ask(); });
            show(sensors);
        });
    }

    void show(const Value& sensors)
    {
        ++shown_;
        sensors_ = sensors;
        if (screen_) {
            paint();
        } else if (options_.json) {
            session_.print(jsonLine({{"sensors", sensors}}));
        } else if (shown_ == 1 || session_.print("\n")) {
            session_.print(sensorLines(sensors, terminalColumns().value_or(0)));
        }
        if (shown_ == options_.refreshes || (sensors.empty() && !screen_)) {
            session_.finish(exitStatus::success);
        }
    }

    void paint()
    {
        Lines lines = sensorLines(sensors_, screen_->columns());
        for (Line& line : lines) { // or what does not fit would go on below, where the next one is
            line = cutLine(std::move(line), screen_->columns());
        }
        screen_->show(lines);
    }

    void readKeys()
    {
        const auto key = screen_->readKey();
        if (key == 'q') {
            session_.finish(exitStatus::success);
        } else if (!key && ++emptyReads_ > 2) {
            keys_.reset(); // an input that is at its end stays readable for ever
        } else if (key) {
            emptyReads_ = 0;
        }
    }

    Session& session_;
    const SensorsOptions& options_;
    Value sensors_ = Value::array(); ///< the latest
    std::size_t shown_ = 0;
    int emptyReads_ = 0;
    std::unique_ptr<Screen> screen_;
    std::unique_ptr<Watch> resizes_;
    std::unique_ptr<Watch> keys_;
    std::unique_ptr<Timer> next_;
};

int runSensors(Session& session, const SensorsOptions& options)
{
    if (options.watch) {
        WatchedSensors watched(session, options);
        return session.runUntilInterrupted([&watched] { watched.start(); });
    }
    return session.run([&] {
        askSensors(session, [&](const Value& sensors) {
            options.json ? session.conclude(jsonLine({{"sensors", sensors}}))
                         : session.conclude(sensorLines(sensors, terminalColumns().value_or(0)));
        });
    });
}

int runFans(Session& session, const FansOptions& options)
{
    return session.run([&] {
        askSensors(session, [&](const Value& sensors) {
            options.json ? session.conclude(jsonLine({{"fans", fansOf(sensors)}}))
                         : session.conclude(fanLines(sensors, terminalColumns().value_or(0)));
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
    sensors.flag("--json", options.json, "As JSON");

    auto [fans, form] = grammar.add("fans", "The fans and how fast they turn", runFans);
    fans.flag("--json", form.json, "As JSON");
}

} // namespace meridal
