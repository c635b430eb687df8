#pragma once

#include "base/Value.h"
#include "collectors/sensors/SensorSMCController.h"
#include "collectors/sensors/SensorsARMController.h"
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

/// A machine with an SMC of the test's making, and what the daemon has of it, on real files.
class SensorsTest : public ::testing::Test {
protected:
    /// From a start of the daemon to its end.
    struct Daemon {
        explicit Daemon(FakeMachine& machine)
            : databases(machine.context)
            , smc(machine.context)
            , arm(machine.context)
            , platform(machine.context)
            , collector((machine.context.databases = &databases, machine.context),
                  {.smc = smc, .arm = arm, .platform = platform})
            , service(
                  machine.context, catalogue, [this] { smc.openIfNeeded(); },
                  [this]() -> SensorsStatCollectorMac& {
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
        SensorSMCController smc;
        SensorsARMController arm;
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
        return daemon->service.supportedElectricSensors(configurations, detail);
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
    /// An SMC that is emulated, as on every machine of another vendor.
    void emulate() { machine.machine().service = "FakeSMC"; }
    /// Such a one, of channels and what they read at first.
    void fit(std::initializer_list<std::pair<SensorChannel, float>> fitted)
    {
        emulate();
        std::vector<SensorChannel> channels;
        for (const auto& [channel, value] : fitted) {
            channels.push_back(channel);
            smc().setFloat(channel.key, value);
        }
        machine.sensorChannels().change(std::move(channels));
    }
    /// What these keys read from now on.
    void measure(std::initializer_list<std::pair<const char*, float>> values)
    {
        for (const auto& [key, value] : values) {
            smc().setFloat(key, value);
        }
    }

    SensorsStatCollectorMac& collector() { return daemon->collector; }
    const SensorStatCollectorItem& sensor(const char* key) { return *collector().sensorWithKey(key); }
    FakeSMCService& smc() { return machine.smc(); }
    static Value json(const char* text) { return parseUntrusted(text).value(); }

    /// What a client other than root, or root, gets for sensors:reply:.
    double ask(const Value& configuration, PowerDetail detail = PowerDetail::Averaged)
    {
        return daemon->service.sensorValues(Value::array({configuration}), detail).at(0);
    }
    Value list(PowerDetail detail = PowerDetail::Averaged)
    {
        const auto answer = daemon->service.list({}, detail);
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

    FakeMachine machine;
    std::unique_ptr<Daemon> daemon;
};

} // namespace meridal::test
