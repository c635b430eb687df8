// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/uptime/UptimeStatCollectorMac.h"
#include "daemon/UptimeService.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A machine that boots, sleeps, crashes and is shut down, with a daemon's uptime record in real files.
class UptimeTest : public ::testing::Test {
protected:
    /// What the daemon has of it, from its start to its end.
    struct Daemon {
        explicit Daemon(Context& context, const HistoryDatabaseItem::Limits& limits = {})
            : databases(context, limits), collector(context, databases), service(context, collector, databases)
        {
            service.prepare();
            service.saveBootTime();
        }
        HistoryDatabaseController databases;
        UptimeStatCollectorMac collector;
        UptimeService service;
    };

    UptimeTest() { boot("boot 1"); }

    VirtualRuntime& runtime() { return machine.runtime; }
    double now() { return runtime().wallTime(); }

    /// The machine starts, with the kernel's boot time in whole seconds as always; the daemon comes up later.
    void boot(const std::string& identifier, double daemonAfter = 0)
    {
        machine.machine().bootId = identifier;
        machine.machine().boot = std::floor(now());
        runtime().advance(daemonAfter);
    }
    void startDaemon()
    {
        daemon.reset();
        daemon = std::make_unique<Daemon>(machine.context);
        runtime().runDue();
    }
    /// The machine was off for a while, and the daemon is up again at once.
    void bootAgain(int number)
    {
        runtime().advance(100);
        boot("boot " + std::to_string(number));
        startDaemon();
    }
    void crash() { daemon.reset(); }
    void shutDown()
    {
        daemon->service.saveShutdownTime(Farewell::Shutdown, now(), {});
        daemon.reset();
    }
    void fallAsleep()
    {
        sleepStart = now();
        daemon->service.saveShutdownTime(Farewell::Sleep, sleepStart, [] {});
        runtime().runDue();
    }
    void wake()
    {
        daemon->service.saveSleep(sleepStart, now());
        runtime().runDue();
    }
    void sleepFor(double seconds)
    {
        fallAsleep();
        runtime().sleepMachine(seconds);
        wake();
    }
    void loseFile() const
    {
        for (const char* part : {"", "-wal", "-shm"}) {
            std::filesystem::remove(machine.context.paths.uptimeDatabase().string() + part);
        }
    }
    /// Somebody sets the clock: the kernel moves its boot time along.
    void stepClock(double seconds)
    {
        runtime().stepWallClock(seconds);
        machine.machine().boot = *machine.machine().boot + seconds;
    }

    std::vector<Dictionary> rows(const std::string& sql, const std::string& file = "uptime.db")
    {
        std::vector<Dictionary> found;
        HistoryDatabaseController databases(machine.context);
        databases.databaseWithPath(machine.context.paths.support / file)
            ->queryDatabase([&](SQLiteConnection& connection) {
                const auto result = connection.rows(sql);
                ASSERT_TRUE(result) << result.error().message;
                found = *result;
            });
        return found;
    }
    Result<Value> ask(const Value& parameters = nullptr)
    {
        std::optional<Result<Value>> answer;
        daemon->service.boots(parameters, [&answer](Result<Value> result) { answer = std::move(result); });
        runtime().runDue();
        return answer ? *answer : Result<Value>(unexpected(ErrorCode::Internal, "no reply"));
    }
    using Times = std::vector<double>;
    Times boots()
    {
        Times all;
        for (const Dictionary& row : rows("select boot from uptime order by rowid")) {
            all.push_back(row["boot"]);
        }
        return all;
    }
    using Ends = std::vector<std::string>;
    /// How the boots on the page ended, newest first.
    static Ends ends(const Value& answer)
    {
        Ends all;
        for (const Value& boot : answer["boots"]) {
            all.push_back(boot["end"]);
        }
        return all;
    }

    FakeMachine machine;
    double sleepStart = 0;
    std::unique_ptr<Daemon> daemon;
};

} // namespace meridal::test
