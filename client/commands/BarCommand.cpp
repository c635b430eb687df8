// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/views/BarLine.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* barExamples =
    R"(One line an update, for status bars. TEMPLATE is text with {cpu}, {memory}, {swap}, {load}, {gpu},
{disk}, {net}, {temp}, {fan}, {sensor:NAME} and {battery}; {temp:CPU}, {fan:NAME}, {net:eth0},
{disk:sda}, {gpu:NAME} and {battery:NAME} say of which one. "{{" is a brace. Without a daemon
figures are "-" until it is there.

Examples:
  meridalctl bar "{cpu} {temp} {net}"
  meridalctl bar --format waybar "{cpu} {temp:CPU} {net} {battery}"
)";

constexpr const char* usualTemplate = "{cpu} {memory} {net}";
/// s; the daemon reads so often by itself, so that a bar that asks no oftener costs it no readings
constexpr double recordInterval = 6;
constexpr double barRetryInterval = 1; // s
constexpr double batteryInterval = 30; // s; it changes slowly, and some are slow to read

struct BarOptions {
    std::string format = "plain";
    std::string text; ///< empty: the usual
    double interval = recordInterval;
    std::size_t refreshes = 0; ///< stop after so many lines; 0: never
};

constexpr std::array<std::pair<std::string_view, BarFormat>, 5> barFormats = {
    {{"plain", BarFormat::Plain}, {"waybar", BarFormat::Waybar}, {"polybar", BarFormat::Polybar},
        {"i3bar", BarFormat::I3bar}, {"tmux", BarFormat::Tmux}}};

BarFormat barFormatNamed(std::string_view name)
{
    return std::find_if(barFormats.begin(), barFormats.end(), [name](const auto& each) {
        return each.first == name;
    })->second;
}

/// Asks for what the template needs, all at once, and prints when all of it is there.
class BarFeed {
public:
    BarFeed(Session& session, const BarOptions& options, BarTemplate layout)
        : session_(session), options_(options), format_(barFormatNamed(options.format)), layout_(std::move(layout))
    {
        session_.client().setReconnectInterval(barRetryInterval);
        session_.client().setEvents({[this] { connected(); }, [this](const Error&) { disconnected(); }, {}});
    }

    void begin(const Result<void>& outcome)
    {
        session_.print(barHeader(format_));
        if (!outcome) {
            disconnected();
            retry();
        }
    }

private:
    /// Until the first time; from then on the client does it.
    void retry()
    {
        next_ = session_.loop().after(barRetryInterval, [this] {
            session_.client().connect([this](const Result<void>& outcome) {
                if (!outcome) {
                    retry();
                }
            });
        });
    }

    void connected()
    {
        figures_ = {};
        askedForBattery_ = -batteryInterval;
        ask();
    }

    void disconnected()
    {
        next_.reset();
        figures_ = {};
        figures_.isOffline = true;
        print();
    }

    void ask()
    {
        next_ = session_.loop().after(options_.interval, [this] { ask(); });
        if (outstanding_ > 0) {
            return; // it is slow to answer
        }
        outstanding_ = 1; // itself, so that answers that come at once end nothing
        const Value passive = {{"passive", options_.interval >= recordInterval}};
        const Value whole = {{"limit", mostRows}};
        request(BarQuestion::Machine, method::machineState, passive, figures_.machine);
        Value sensors = passive;
        sensors.update(whole);
        request(BarQuestion::Sensors, method::sensorsList, sensors, figures_.sensors);
        request(BarQuestion::Interfaces, method::networkInterfaces, whole, figures_.interfaces);
        if (const double now = session_.loop().now(); now - askedForBattery_ >= batteryInterval) {
            askedForBattery_ = now;
            request(BarQuestion::Battery, method::batteryState, {{"passive", true}}, figures_.battery);
        }
        answered();
    }

    void request(BarQuestion question, const char* method, const Value& parameters, Value& figure)
    {
        if (!layout_.asks(question)) {
            return;
        }
        ++outstanding_;
        session_.client().call(method, Value::array({parameters}), [this, &figure](const Result<Value>& answer) {
            figure = answer ? *answer : Value(); // what cannot be had now is "-"
            answered();
        });
    }

    void answered()
    {
        if (--outstanding_ == 0 && !figures_.isOffline) {
            print();
        }
    }

    void print()
    {
        if (session_.print(barLine(format_, layout_, figures_)) && ++printed_ == options_.refreshes) {
            session_.finish(exitStatus::success);
        }
    }

    static constexpr int mostRows = 500;

    Session& session_;
    const BarOptions& options_;
    const BarFormat format_;
    const BarTemplate layout_;
    BarFigures figures_;
    double askedForBattery_ = 0; ///< s of the loop's clock
    std::size_t outstanding_ = 0;
    std::size_t printed_ = 0;
    std::unique_ptr<Timer> next_;
};

int runBar(Session& session, const BarOptions& options)
{
    auto layout = BarTemplate::parse(options.text.empty() ? usualTemplate : options.text);
    if (!layout) {
        session.fail(exitStatus::usage, layout.error().message);
        return exitStatus::usage;
    }
    BarFeed feed(session, options, *std::move(layout));
    const auto interrupted =
        session.loop().watchSignals({SIGINT, SIGTERM, SIGHUP}, [&session] { session.finish(exitStatus::success); });
    const int status = session.runAnyhow([&feed](const Result<void>& outcome) { feed.begin(outcome); });
    session.client().setEvents({});
    return status;
}

} // namespace

void addBar(Grammar& grammar)
{
    auto [bar, options] =
        grammar.add("bar", "One line an update for waybar, polybar, i3bar, tmux and other bars", runBar);
    bar.examples(barExamples);
    bar.text("template", options.text, "", "What to show");
    bar.choice("--format", options.format, {"waybar", "polybar", "i3bar", "tmux", "plain"}, "For whom");
    bar.seconds("--interval", options.interval, 1, 3600, "Seconds between two lines");
    bar.count("--refreshes", options.refreshes, "Stop after so many lines");
}

} // namespace meridal
