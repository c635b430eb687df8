// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/network/CoreWLanStatCollector.h"
#include "collectors/network/NetworkStatCollectorItem.h"
#include "collectors/network/NetworkStatCollectorMac.h"
#include "daemon/NetworkService.h"
#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal::test {

/// A machine whose interfaces carry what a test says, with a daemon's account of it in a real file.
class NetworkTest : public ::testing::Test {
protected:
    struct Daemon {
        Daemon(Context& context, const HistoryDatabaseItem::Limits& limits)
            : databases(context, limits)
            , wireless(context)
            , collector(context, databases, wireless)
            , service(context, collector)
        {
            service.prepare();
        }
        HistoryDatabaseController databases;
        CoreWLanStatCollector wireless;
        NetworkStatCollectorMac collector;
        NetworkService service;
    };

    VirtualRuntime& runtime() { return machine.runtime; }
    double now() { return runtime().wallTime(); }
    NetworkStatCollectorMac& collector() { return daemon->collector; }

    void startDaemon(const HistoryDatabaseItem::Limits& limits = {})
    {
        daemon.reset();
        daemon = std::make_unique<Daemon>(machine.context, limits);
        runtime().runDue();
    }
    /// The daemon's tick, some seconds after the last one.
    void tick(double seconds = 2)
    {
        runtime().advance(seconds);
        daemon->service.update();
        runtime().runDue();
    }
    void begin()
    {
        startDaemon();
        tick();
    }
    /// Bytes on an interface, and the tick that sees them.
    void carry(const std::string& name, std::uint64_t sent, std::uint64_t received)
    {
        machine.network().transfer(name, sent, received);
        tick();
    }
    /// Ticks until the running period of ten minutes is stored.
    void passBoundary()
    {
        const double boundary = collector().nextBandwidthUpdateTime();
        while (collector().nextBandwidthUpdateTime() == boundary) {
            tick();
        }
    }
    std::vector<Dictionary> rows(const std::string& sql)
    {
        std::vector<Dictionary> found;
        daemon->databases.databaseWithPath(machine.context.paths.bandwidthDatabase())
            ->queryDatabase([&](SQLiteConnection& connection) {
                const auto result = connection.rows(sql);
                ASSERT_TRUE(result) << result.error().message;
                found = *result;
            });
        return found;
    }
    /// All samples, oldest first, with names for numbers.
    std::vector<Dictionary> samples()
    {
        return rows(
            "SELECT start, \"end\", upload, download, network, (SELECT interface FROM bandwidth_interface_map "
            "WHERE identifier = bandwidth_samples.interface) AS interface FROM bandwidth_samples ORDER BY sample");
    }
    /// Runs statements on the file before a daemon opens it.
    void prepareFile(const std::vector<std::string>& statements)
    {
        HistoryDatabaseController databases(machine.context);
        databases.databaseWithPath(machine.context.paths.bandwidthDatabase())
            ->queryDatabase([&](SQLiteConnection& connection) {
                for (const std::string& sql : statements) {
                    ASSERT_TRUE(connection.execute(sql)) << sql;
                }
            });
    }
    /// A figure of all samples, oldest first.
    std::vector<double> column(const char* name)
    {
        std::vector<double> figures;
        for (const Dictionary& row : samples()) {
            figures.push_back(row[name].get<double>());
        }
        return figures;
    }
    Value totals(const Value& parameters)
    {
        std::optional<Result<Value>> answer;
        daemon->service.totals(parameters, [&answer](Result<Value> result) { answer = std::move(result); });
        runtime().runDue();
        return answer && *answer ? **answer : Value();
    }

    FakeMachine machine;
    std::unique_ptr<Daemon> daemon;
};

} // namespace meridal::test
