// SPDX-License-Identifier: Apache-2.0
#include "collectors/uptime/UptimeStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/SharedInstance.h"
#include "base/Value.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <memory>
#include <utility>

namespace meridal {

namespace {

const TableSchema boottimes = {.table = "boottimes", .create = "create table %@ (time double NOT NULL)"};
const TableSchema identifiers = {
    .table = "boottime_ids", .create = "create table %@ (time double NOT NULL, id varchar(100) NOT NULL)"};

} // namespace

UptimeStatCollectorMac::UptimeStatCollectorMac(Context& context, HistoryDatabaseController& databases)
    : UptimeStatCollector(context)
    , databases_(databases)
    , dbpath_((context.paths.support / "uptime-history.db").string())
    , dbpathLong_((context.paths.support / "uptime-history-long.db").string())
{
    loadUptime();
}

UptimeStatCollectorMac& UptimeStatCollectorMac::sharedUptimeCollector()
{
    auto& instance = sharedInstance<UptimeStatCollectorMac>();
    if (!instance) {
        assert(Context::shared().databases);
        instance = std::make_unique<UptimeStatCollectorMac>(Context::shared(), *Context::shared().databases);
    }
    return *instance;
}

void UptimeStatCollectorMac::cleanupShared()
{
    auto& instance = sharedInstance<UptimeStatCollectorMac>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

void UptimeStatCollectorMac::loadUptime()
{
    const auto boot = context().host.machine->bootTime();
    setBoottime(boot ? std::max(0.0, std::floor(*boot)) : 0);
    if (boot) {
        setUptime(std::max(0.0, context().runtime.wallTime() - *boot));
    }
}

void UptimeStatCollectorMac::prepareDatabase()
{
    for (const std::string& path : {dbpath_, dbpathLong_}) {
        const auto database = databases_.databaseWithPath(path);
        database->declareTable(boottimes);
        database->declareTable(identifiers);
    }
}

/// What records the boot in one file.
HistoryDatabaseItem::QueryBlock UptimeStatCollectorMac::recording() const
{
    const auto identifier = context().host.machine->bootIdentifier();
    return [boot = boottime(), identifier](SQLiteConnection& connection) {
        const auto known = connection.rows("SELECT * FROM boottimes WHERE time = ?", SqlValues{boot});
        if (!known
            || (known->empty() && !connection.execute("insert into boottimes (time) values (?)", SqlValues{boot}))
            || !identifier) {
            return;
        }
        const auto named = connection.rows("SELECT * FROM boottime_ids WHERE id = ?", SqlValues{*identifier});
        if (named && named->empty()) {
            static_cast<void>(
                connection.execute("insert into boottime_ids (time, id) values (?, ?)", SqlValues{boot, *identifier}));
        }
    };
}

void UptimeStatCollectorMac::addToDatabase()
{
    if (boottime() > 0) {
        for (const std::string& path : {dbpath_, dbpathLong_}) {
            databases_.databaseWithPath(path)->queryDatabaseAsync(recording());
        }
    }
}

void UptimeStatCollectorMac::askForRecordedBoottime(std::function<void(std::optional<double>)> reply)
{
    const auto identifier = context().host.machine->bootIdentifier();
    const auto recordedIn = [identifier](SQLiteConnection& connection) -> std::optional<double> {
        const auto rows = connection.rows(
            "SELECT time FROM boottime_ids WHERE id = ?", SqlValues{identifier ? SqlValue(*identifier) : SqlValue()});
        return rows && !rows->empty() ? number(rows->front(), "time") : std::nullopt;
    };
    databases_.databaseWithPath(dbpath_)->queryDatabaseAsync(
        [recordedIn, reply = std::move(reply), longTerm = databases_.databaseWithPath(dbpathLong_),
            &main = context().runtime.mainQueue()](SQLiteConnection& connection) {
            if (const auto recorded = recordedIn(connection)) {
                main.post([reply, recorded] { reply(recorded); });
                return;
            }
            longTerm->queryDatabaseAsync([recordedIn, reply, &main](SQLiteConnection& other) {
                main.post([reply, recorded = recordedIn(other)] { reply(recorded); });
            });
        });
}

} // namespace meridal
