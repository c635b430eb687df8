// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/SensorService.h"
#include "database/HistoryDatabaseController.h"
#include "history/HistoryCatalogue.h"
#include "platform/PlatformController.h"
#include "tests/support/FakeHost.h"
#include "wire/Link.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace meridal::test {

/// A machine with sensors of the test's making, and what the daemon has of it, on real files.
class SensorsTest : public ::testing::Test {
protected:
    /// From a start of the daemon to its end.
    struct Daemon {
        explicit Daemon(FakeMachine& machine)
            : databases(machine.context)
            , platform(machine.context)
            , collector((machine.context.databases = &databases, machine.context), platform)
            , service(machine.context, catalogue, [this]() -> SensorsStatCollectorMac& {
                ++made;
                return collector;
            })
        {
            service.open();
        }
        ~Daemon()
        {
            collector.cleanup();
            databases.closeAll();
        }

        HistoryDatabaseController databases;
        HistoryCatalogue catalogue;
        PlatformController platform;
        SensorsStatCollectorMac collector;
        SensorService service;
        int made = 0;
    };

    void start()
    {
        daemon.reset();
        daemon = std::make_unique<Daemon>(machine);
        machine.runtime.runDue();
    }
    /// The daemon starts, a client asks for these sensors, and time passes.
    Value startWith(const char* configurations, double seconds)
    {
        start();
        const Value entries = electric(json(configurations));
        machine.runtime.advance(seconds);
        return entries;
    }
    Value electric(const Value& configurations, PowerDetail detail = PowerDetail::Averaged)
    {
        return daemon->service.supportedElectricSensors(configurations, root, detail);
    }
    /// A page of recorded history, as this user gets it.
    Value history(const Value& question, const Peer& peer = {})
    {
        Value page;
        HistoryQuestions(daemon->catalogue).samples(question, peer, [&](const Result<Value>& answer) {
            ASSERT_TRUE(answer) << answer.error().message;
            page = *answer;
        });
        machine.runtime.runDue();
        return page;
    }
    /// A machine that names its sensors, as all but Macs do, and what they read at first.
    void fit(std::initializer_list<std::pair<SensorRecord, double>> fitted)
    {
        machine.machine().service = "FakeSMC";
        std::vector<SensorRecord> records;
        for (const auto& [record, value] : fitted) {
            records.push_back(record);
            source().values[record.key] = value;
        }
        source().change(std::move(records));
    }
    /// What these keys read from now on.
    void measure(std::initializer_list<std::pair<const char*, std::optional<double>>> values)
    {
        for (const auto& [key, value] : values) {
            source().values[key] = value;
        }
    }

    SensorsStatCollectorMac& collector() { return daemon->collector; }
    const SensorStatCollectorItem& sensor(const char* key) { return *collector().sensorWithKey(key); }
    FakeSensorSource& source() { return machine.sensors(); }
    static Value json(const char* text) { return parseUntrusted(text).value(); }

    /// What a client other than root, or root, gets for sensors:reply:.
    double ask(const Value& configuration, PowerDetail detail = PowerDetail::Averaged)
    {
        return daemon->service.sensorValues(Value::array({configuration}), detail).at(0);
    }
    Value list(PowerDetail detail = PowerDetail::Averaged, std::optional<std::uint32_t> uid = {})
    {
        const auto answer = daemon->service.list({}, uid, detail);
        return answer ? answer->at("sensors") : Value(answer.error().message);
    }
    std::vector<Dictionary> rows(const std::string& sql, const std::string& file = "sensors.db")
    {
        std::vector<Dictionary> found;
        HistoryDatabaseController databases(machine.context);
        databases.databaseWithPath(machine.context.paths.support / file)
            ->queryDatabase([&](SQLiteConnection& database) {
                const auto result = database.rows(sql);
                ASSERT_TRUE(result) << result.error().message;
                found = *result;
            });
        return found;
    }
    static std::vector<std::string> keysOf(const Value& entries)
    {
        std::vector<std::string> keys;
        for (const Value& entry : entries) {
            keys.push_back(entry.at("key"));
        }
        return keys;
    }

    static constexpr ClientSensors::Owner root = {};
    FakeMachine machine;
    std::unique_ptr<Daemon> daemon;
};

} // namespace meridal::test
