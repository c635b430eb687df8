// SPDX-License-Identifier: Apache-2.0
// What a scrape of all metrics costs the daemon: every question that it takes, answered by the services and written as text, on
// a usual machine and on a large one. Hardware is in memory; files, and what the system says of the process itself, are real.
// Each question by itself, and all together; "series" is what comes of it.

#include "metrics/Metrics.h"
#include "base/Log.h"
#include "collectors/process/ProcessStatCollector.h"
#include "daemon/MeridalDaemon.h"
#include "daemon/MeridalHistory.h"
#include "daemon/StatusReport.h"
#include "daemon/Watches.h"
#include "platform/linux/machine/LinuxSelfUsage.h"
#include "tests/daemon/AllServices.h"
#include "tests/support/SMARTPageBuilder.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

struct MachineSize {
    const char* name;
    int applications;
    int sensors;
    int disks;
};

constexpr MachineSize sizes[] = {{"usual", 100, 24, 2}, {"large", 500, 100, 4}};
constexpr int boots = 1000;
constexpr double scrapeInterval = 15; // s

class ScrapedDaemon {
public:
    explicit ScrapedDaemon(const MachineSize& wanted) : size(wanted)
    {
        machine.trafficCounters().refusal.reset();
        addProcesses();
        addSensors();
        addDisks();
        machine.host.selfUsage = std::make_unique<LinuxSelfUsage>("/");
        daemon = std::make_unique<MeridalDaemon>(machine.context, collector, power, house.services);
        addMethods();
        machine.runtime.runDue();
        addBoots();
        live(120);
    }

    /// Time passes, in which everybody works.
    void live(double seconds)
    {
        for (double passed = 0; passed < seconds; passed += 5) {
            for (int number = 0; number < size.applications; ++number) {
                machine.processes().work(1000 + number, {.cpu = 0.01 * (number % 50), .read = 4096});
            }
            machine.runtime.advance(5);
        }
    }

    /// As a transport would: the answer is text at the end.
    std::size_t ask(const std::string& method, const Value& parameters)
    {
        std::size_t length = 0;
        call(method, parameters, [&length](const Result<Value>& answer) {
            if (!answer) {
                std::cerr << answer.error().message << '\n';
                std::abort();
            }
            length = serialise(*answer).size();
        });
        return length;
    }

    void call(const std::string& method, const Value& parameters, const std::function<void(Result<Value>)>& reply)
    {
        methods.call(method, parameters, {Peer{.uid = 65534, .gid = 65534, .known = true}, {}}, reply);
        machine.runtime.runDue();
    }

    const MachineSize size;
    test::FakeMachine machine;
    ProcessStatCollector collector{machine.context};
    ZAVPowerManager power{machine.context};
    test::AllServices house{machine, collector, power, true};
    std::unique_ptr<MeridalDaemon> daemon;
    std::unique_ptr<StatusReport> status;
    MeridalHistory methods{machine.runtime.mainQueue()};
    Watches watches{machine.runtime, methods};

private:
    void addProcesses()
    {
        machine.processes().set({.pid = 1, .name = "init"});
        for (int number = 0; number < size.applications; ++number) {
            const std::string name = "application-" + std::to_string(number);
            machine.processes().set(
                {.pid = 1000 + number, .parentPid = 1, .present = ProcessFields::All, .name = name});
            machine.processes().bundles[1000 + number] = "/usr/bin/" + name;
        }
    }

    void addSensors()
    {
        machine.machine().service = "hwmon";
        std::vector<SensorRecord> records;
        for (int number = 0; number < size.sensors; ++number) {
            const std::string key = "T" + std::to_string(100 + number);
            records.push_back(test::sensorOf(key, "chip-" + std::to_string(number / 10), "sensor " + key));
            records.back().limits = {.low = 1, .high = 80, .critical = 100};
            machine.sensors().values[key] = 40 + number % 7;
        }
        machine.sensors().change(std::move(records));
    }

    void addDisks()
    {
        for (int number = 0; number < size.disks; ++number) {
            const auto disk = std::make_shared<test::FakeDisk>();
            const std::string serial = "SERIAL" + std::to_string(number);
            std::vector<test::TestAttribute> attributes;
            for (int attribute = 1; attribute <= 20; ++attribute) {
                attributes.push_back(
                    {.attributeID = static_cast<std::uint8_t>(attribute), .raw = 100, .threshold = 10});
            }
            disk->data = test::dataPage(attributes);
            disk->thresholds = test::thresholdPage(attributes);
            disk->record = {.path = "root/pci/ata" + std::to_string(number), .kind = SMARTKind::ATA, .serial = serial};
            machine.disks().plugged.push_back(disk);
        }
    }

    void addBoots()
    {
        house.databases.databaseWithPath(machine.context.paths.uptimeDatabase())
            ->queryDatabase([](SQLiteConnection& connection) {
                const std::string records =
                    "WITH RECURSIVE boots(number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM boots "
                    "WHERE number < "
                    + std::to_string(boots) + ") ";
                if (!connection.execute("INSERT INTO uptime " + records
                        + "SELECT 1600000000 + number * 80000, 1600000000 + number * 80000 + 40000 FROM boots")
                    || !connection.execute("INSERT INTO boot_records " + records
                        + "SELECT 1600000000 + number * 80000, 'id' || number, 1600000000 + number * 80000, 40000, 0, "
                          "1 + number % 3 FROM boots")) {
                    std::abort();
                }
            });
    }

    void addMethods()
    {
        status = std::make_unique<StatusReport>(*daemon, [] { return ListenerStatistics(); });
        status->addSection("capture", [this] { return house.traffic.describe(); });
        status->addTo(methods);
        house.uptime.addTo(methods);
        house.disks.addTo(methods, house.catalogue);
        house.figures.addTo(methods, house.catalogue);
        house.applications.addTo(
            methods, watches, [this] { daemon->updateProcesses(); },
            [this](const Peer& peer) { return daemon->viewerOf(peer); });
        house.sensors.addTo(methods);
        house.battery.addTo(methods, house.catalogue);
        house.network.addTo(methods);
    }
};

/// The questions of a scrape.
struct Questions {
    std::vector<std::pair<std::string, Value>> all;
    double series = 0;
};

Questions questionsOf(ScrapedDaemon& scraped)
{
    Questions questions;
    const MetricsCaller caller = [&](const std::string& method, const Value& parameters, const auto& reply) {
        questions.all.emplace_back(method, parameters);
        scraped.call(method, parameters, reply);
    };
    askMetrics(caller, {}, [&](const MetricsSnapshot& snapshot) {
        if (!snapshot.isUp || snapshot.groups["groups"].size() != 52
            || snapshot.sensors.size() != static_cast<std::size_t>(scraped.size.sensors)
            || snapshot.disks.size() != static_cast<std::size_t>(scraped.size.disks)) {
            std::cerr << "not the machine that was to be scraped\n";
            std::abort();
        }
        std::istringstream text(metricsText(snapshot, {}, MetricsFormat::Prometheus));
        for (std::string line; std::getline(text, line);) {
            questions.series += line.starts_with('#') ? 0 : 1;
        }
    });
    return questions;
}

std::size_t askAll(ScrapedDaemon& scraped, const std::vector<std::pair<std::string, Value>>& questions)
{
    std::size_t length = 0;
    for (const auto& [method, parameters] : questions) {
        length += scraped.ask(method, parameters);
    }
    return length;
}

/// As after 15 s in which the applications had the processor's caches; or once more right after that.
enum class Caches { OfOthers, Ours };

void scrape(benchmark::State& state, const std::vector<std::pair<std::string, Value>>& questions,
    ScrapedDaemon& scraped, Caches caches)
{
    std::size_t length = 0;
    for (auto turn : state) {
        state.PauseTiming();
        scraped.live(scrapeInterval);
        if (caches == Caches::Ours) {
            askAll(scraped, questions);
        }
        state.ResumeTiming();
        length = askAll(scraped, questions);
    }
    state.counters["answered"] = static_cast<double>(length);
}

} // namespace
} // namespace meridal

int main(int count, char** words)
{
    using namespace meridal;
    benchmark::Initialize(&count, words);
    std::vector<std::unique_ptr<ScrapedDaemon>> machines;
    for (const MachineSize& size : sizes) {
        ScrapedDaemon& scraped = *machines.emplace_back(std::make_unique<ScrapedDaemon>(size));
        const Questions questions = questionsOf(scraped);
        const auto add = [&](const std::string& name, const std::vector<std::pair<std::string, Value>>& asked) {
            for (const auto caches : {Caches::OfOthers, Caches::Ours}) {
                const std::string full = std::string(size.name) + '/' + name + (caches == Caches::Ours ? "/again" : "");
                benchmark::RegisterBenchmark(full.c_str(),
                    [&scraped, asked, caches, series = questions.series](benchmark::State& state) {
                        scrape(state, asked, scraped, caches);
                        state.counters["series"] = series;
                    })
                    ->Unit(benchmark::kMicrosecond);
            }
        };
        for (const auto& question : questions.all) {
            add("question/" + question.first, {question});
        }
        add("scrape", questions.all);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
