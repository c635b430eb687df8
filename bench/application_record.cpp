// SPDX-License-Identifier: Apache-2.0
// The record of what applications use: how long each question takes with a year of 300 applications in the file, what a
// pass and a minute cost, and, with --years=N, how large the file is after so many years.

#include "collectors/applications/ApplicationRecorder.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

namespace meridal::test {
namespace {

constexpr int applicationCount = 300;
constexpr double daySeconds = 86'400;

/// 300 applications: a few always busy, most now and then, fewer by night; which is large in what differs.
class Usage {
public:
    Usage()
    {
        for (int number = 0; number < applicationCount; ++number) {
            Profile profile;
            const auto draw = [this] { return std::exp(std::normal_distribution<double>(0, 1.2)(random_)); };
            profile.often =
                0.05 / std::pow(number + 1, 0.7); // a second: the first nearly always, the last every half hour
            profile.cpu = 0.2 * draw() / std::sqrt(number + 1.0);
            profile.disk = 40'000 * draw();
            profile.network = number % 3 == 0 ? 20'000 * draw() : 0;
            profile.memory = 40e6 * draw();
            profiles_.push_back(profile);
        }
        totals_.resize(2 + applicationCount);
        for (std::size_t place = 0; place < totals_.size(); ++place) {
            GroupTotals& group = totals_[place];
            group.number = static_cast<std::uint32_t>(place);
            group.identity = group.name = place == 0 ? "other"
                : place == 1                         ? "kernel"
                                                     : fmt::format("unit:service-{}.service", place);
            group.kind = place == 0 ? GroupKind::Other : place == 1 ? GroupKind::Kernel : GroupKind::Application;
            group.sums.joules = 0;
        }
    }
    std::vector<GroupTotals>& totals() { return totals_; }
    /// So many seconds go by.
    void pass(double seconds, double wallTime)
    {
        const double hour = std::fmod(wallTime, daySeconds) / 3600;
        const double awake = hour > 7 && hour < 23 ? 1 : 0.25;
        std::uniform_real_distribution<double> chance(0, 1);
        for (std::size_t place = 1; place < totals_.size(); ++place) {
            GroupTotals& group = totals_[place];
            const Profile& profile = profiles_[std::max<std::size_t>(place, 2) - 2];
            group.now = {.residentBytes = static_cast<std::uint64_t>(profile.memory * (0.9 + 0.2 * chance(random_))),
                .footprintBytes = 0,
                .processes = 1 + static_cast<std::uint32_t>(place % 5)};
            const double expected = profile.often * awake * seconds;
            if (chance(random_) > 1 - std::exp(-expected)) {
                continue;
            }
            const double times = std::max(1.0, expected) * (0.5 + chance(random_));
            GroupSums used;
            used.cpuUserSeconds = 0.7 * profile.cpu * times;
            used.cpuSystemSeconds = 0.3 * profile.cpu * times;
            used.bytesRead = static_cast<std::uint64_t>(profile.disk * times * chance(random_));
            used.bytesWritten = static_cast<std::uint64_t>(profile.disk * times);
            used.bytesReceived = static_cast<std::uint64_t>(profile.network * times);
            used.bytesSent = static_cast<std::uint64_t>(profile.network * times / 4);
            used.wakeups = static_cast<std::uint64_t>(20 * times);
            used.energyScore = profile.cpu * times * 30;
            used.joules = profile.cpu * times * 4;
            used.processesStarted = used.processesEnded = place % 7 == 0 ? 1 : 0;
            group.sums += used;
        }
    }
    std::vector<ProcessMinute> processes()
    {
        std::vector<ProcessMinute> minute;
        for (std::uint32_t place = 0; place < 30; ++place) {
            minute.push_back({.pid = static_cast<std::int32_t>(1000 + random_() % 30'000),
                .startTime = 1.6e9 + static_cast<double>(random_() % 1'000'000) + 0.25,
                .name = "process-name",
                .group = 2 + static_cast<std::uint32_t>(random_() % applicationCount),
                .cpuSeconds = 0.001 * static_cast<double>(random_() % 20'000),
                .memoryBytes = 1'000'000 + random_() % 500'000'000,
                .diskBytes = random_() % 1'000'000,
                .networkBytes = random_() % 1'000'000});
        }
        return minute;
    }

private:
    struct Profile {
        double often = 0;
        double cpu = 0;
        double disk = 0;
        double network = 0;
        double memory = 0;
    };
    std::mt19937 random_{1};
    std::vector<Profile> profiles_;
    std::vector<GroupTotals> totals_;
};

/// A recorder beside that usage. Of long ago only what is kept of it matters: half a day goes by in one pass, an hour in those of
/// which hours are kept, then a quarter of one, and 30 s in the last three days.
class Years {
public:
    explicit Years(double days)
    {
        machine_.context.paths.support = folder_.root();
        machine_.context.databases = &databases_;
        machine_.clockSource().synchronised = true;
        machine_.runtime.stepWallClock(1'700'006'400 - machine_.runtime.wallTime());
        constexpr double hoursKept = 102;
        live(days - hoursKept, daySeconds / 2);
        live(std::min(days, hoursKept) - 16, 3600);
        live(13, 900);
        live(3, 30);
        recorder_.runDatabaseQueue();
        machine_.runtime.runDue();
    }
    ~Years()
    {
        databases_.closeAll();
        machine_.context.databases = nullptr;
    }
    double now() const { return machine_.runtime.wallTime(); }
    void pass(double seconds)
    {
        machine_.runtime.advance(seconds);
        usage_.pass(seconds, now());
        recorder_.record(now(), usage_.totals());
        if (seconds >= 60 || std::fmod(now(), 60) < seconds) {
            recorder_.recordMinute(now(), usage_.processes());
        }
        recorder_.updateHistory();
        machine_.runtime.runDue();
    }
    template <typename Answer>
    Answer answered(const std::function<void(std::function<void(const std::optional<Answer>&)>)>& ask)
    {
        std::optional<Answer> answer;
        ask([&answer](const std::optional<Answer>& reply) { answer = reply; });
        machine_.runtime.runDue();
        return answer.value();
    }
    void report()
    {
        const auto file = databases_.databaseWithPath(folder_.root() / "applications.db");
        file->queryDatabase([](SQLiteConnection& connection) {
            static_cast<void>(connection.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
            for (const char* table : {"minutes", "quarters", "hours", "days", "months", "processes", "map"}) {
                static_cast<void>(connection.forEachRow(fmt::format("SELECT count(*) FROM application_{}", table), {},
                    [table](
                        std::span<const SqlValue> row) { std::printf("%s: %.0f rows\n", table, sqlNumber(row[0])); }));
            }
            static_cast<void>(
                connection.forEachRow("SELECT freelist_count, page_count FROM pragma_freelist_count, pragma_page_count",
                    {}, [](std::span<const SqlValue> row) {
                        std::printf("%.0f of %.0f pages are free\n", sqlNumber(row[0]), sqlNumber(row[1]));
                    }));
        });
        const auto bytes = static_cast<double>(std::filesystem::file_size(folder_.root() / "applications.db"));
        std::printf("%.1f MiB\n", bytes / 1024 / 1024);
    }
    ApplicationRecorder& recorder() { return recorder_; }

private:
    void live(double days, double seconds)
    {
        for (const double end = now() + days * daySeconds; now() < end;) {
            pass(seconds);
        }
    }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    HistoryDatabaseController databases_{machine_.context};
    ApplicationRecorder recorder_{machine_.context};
    Usage usage_;
};

Years& aYear()
{
    static Years year(365);
    return year;
}

void totalsOf(benchmark::State& state)
{
    Years& year = aYear();
    const double from = year.now() - static_cast<double>(state.range(0)) * daySeconds;
    const RecordStep step = stepFor(from, year.now(), year.now(), 500);
    std::size_t groups = 0;
    for (auto _ : state) {
        groups = year.answered<RecordedTotals>([&](auto reply) {
                         year.recorder().readTotals(
                             {.from = from, .until = year.now(), .step = step, .whose = {}, .after = {}}, reply);
                     })
                     .groups.size();
    }
    state.SetLabel(fmt::format("by {}, {} groups", traitsOf(step).name, groups));
}

void courseOver(benchmark::State& state)
{
    Years& year = aYear();
    const double from = year.now() - static_cast<double>(state.range(0)) * daySeconds;
    const RecordStep step = stepFor(from, year.now(), year.now(), 500);
    std::size_t periods = 0;
    for (auto _ : state) {
        periods = year.answered<RecordedCourse>([&](auto reply) {
                          year.recorder().readCourse({.from = from,
                                                         .until = year.now(),
                                                         .step = step,
                                                         .identity = "unit:service-10.service",
                                                         .whose = {},
                                                         .limit = 500,
                                                         .after = {}},
                              reply);
                      })
                      .periods.size();
    }
    state.SetLabel(fmt::format("by {}, {} periods", traitsOf(step).name, periods));
}

void momentAgo(benchmark::State& state)
{
    Years& year = aYear();
    const double time = year.now() - static_cast<double>(state.range(0)) * daySeconds;
    std::size_t groups = 0;
    for (auto _ : state) {
        groups =
            year.answered<RecordedMoment>([&](auto reply) { year.recorder().readMoment(time, reply); }).groups.size();
    }
    state.SetLabel(fmt::format("{} groups", groups));
}

/// An hour of passes every 10 s, with all that is written; the usage itself, which is not the daemon's, included.
void anHourOfPasses(benchmark::State& state)
{
    Years& year = aYear();
    for (auto _ : state) {
        for (int pass = 0; pass < 360; ++pass) {
            year.pass(10);
        }
    }
}

BENCHMARK(totalsOf)->Arg(1)->Arg(5)->Arg(30)->Arg(100)->Arg(365)->Unit(benchmark::kMillisecond);
BENCHMARK(courseOver)->Arg(1)->Arg(30)->Arg(365)->Unit(benchmark::kMillisecond);
BENCHMARK(momentAgo)->Arg(1)->Arg(10)->Arg(50)->Arg(300)->Unit(benchmark::kMillisecond);
BENCHMARK(anHourOfPasses)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace meridal::test

int main(int argc, char** argv)
{
    constexpr std::string_view years = "--years=";
    if (argc == 2 && std::string_view(argv[1]).substr(0, years.size()) == years) {
        meridal::test::Years(365.25 * std::atof(argv[1] + years.size())).report();
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
