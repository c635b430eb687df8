#include "collectors/uptime/UptimeStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/Value.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <memory>

namespace meridal {

namespace {

const TableSchema boottimes = {.table = "boottimes", .create = "create table %@ (time double NOT NULL)"};

std::unique_ptr<UptimeStatCollectorMac>& sharedInstance()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance = *new std::unique_ptr<UptimeStatCollectorMac>;
    return instance;
}

} // namespace

UptimeStatCollectorMac::UptimeStatCollectorMac(Context& context, HistoryDatabaseController& databases)
    : UptimeStatCollector(context), databases_(databases)
{
    setDbTablePrefix("uptime");
    setDbpath((context.paths.support / "uptime-history.db").string());
    setDbpathLong((context.paths.support / "uptime-history-long.db").string());
    loadUptime();
}

UptimeStatCollectorMac& UptimeStatCollectorMac::sharedUptimeCollector()
{
    auto& instance = sharedInstance();
    if (!instance) {
        assert(Context::shared().databases);
        instance = std::make_unique<UptimeStatCollectorMac>(Context::shared(), *Context::shared().databases);
    }
    return *instance;
}

void UptimeStatCollectorMac::cleanupShared()
{
    auto& instance = sharedInstance();
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

bool UptimeStatCollectorMac::prepareDatabase()
{
    bool created = StatCollector::prepareDatabase();
    for (const std::string& path : {dbpath(), dbpathLong()}) {
        const auto database = databases_.databaseWithPath(path);
        database->queryDatabase([&](SQLiteConnection& connection) {
            const auto exists = connection.tableExists(boottimes.table);
            created = created || (exists && !*exists);
        });
        database->declareTable(boottimes);
    }
    return created;
}

void UptimeStatCollectorMac::addToDatabase()
{
    if (boottime() <= 0) {
        return;
    }
    const SqlValues boot = {boottime()};
    for (const std::string& path : {dbpath(), dbpathLong()}) {
        databases_.databaseWithPath(path)->queryDatabase([&](SQLiteConnection& connection) {
            const auto known = connection.rows("SELECT * FROM boottimes WHERE time = ?", boot);
            if (known && known->empty()) {
                static_cast<void>(connection.execute("insert into boottimes (time) values (?)", boot));
            }
        });
    }
}

} // namespace meridal
