// SPDX-License-Identifier: Apache-2.0
#include "daemon/ConfigurationService.h"

#include "base/Log.h"
#include "base/Value.h"
#include "daemon/ApplicationService.h"
#include "daemon/BatteryService.h"
#include "daemon/ConfigurationCheck.h"
#include "daemon/DiskService.h"
#include "daemon/MachineService.h"
#include "daemon/SensorService.h"
#include "platform/Context.h"

#include <fmt/format.h>

namespace meridal {

ConfigurationService::ConfigurationService(Context& context, ConfigurationFiles& files, const Services& services)
    : context_(context), files_(files), services_(services), started_(files.current())
{
    logWarnings();
}

void ConfigurationService::apply()
{
    const Configuration& now = files_.current();
    context_.longTermAge = now.keep.longTerm;
    services_.sensors.setRecording(now.record.sensors);
    services_.disks.setRecording(now.record.disks);
    services_.machine.setRecording(now.record.machine);
    services_.battery.setRecording(now.record.battery);
    const Configuration::Keep& keep = now.keep;
    services_.applications.recorder().setKeep({.seconds = {keep.applicationMinutes, keep.applicationQuarterHours,
                                                   keep.applicationHours, keep.applicationDays, 0}});
    services_.applications.setInterval(now.passInterval);
    services_.applications.setRecording(now.record.applications);
}

void ConfigurationService::reload()
{
    files_.read();
    context_.log.info(fmt::format("The configuration was read again, from {} files", files_.files().size()));
    logWarnings();
    for (const std::string& setting : settingsForNextStart(started_, files_.current())) {
        context_.log.warning(setting + " was changed, which takes effect at the next start");
    }
    apply();
}

void ConfigurationService::logWarnings() const
{
    for (const ConfigurationWarning& warning : files_.warnings()) {
        context_.log.warning(lineOf(warning));
    }
}

Dictionary ConfigurationService::describe() const
{
    Value warnings = Value::array();
    for (const ConfigurationWarning& warning : files_.warnings()) {
        Value entry = {{"file", warning.file}, {"text", warning.text}};
        if (warning.line > 0) {
            entry["line"] = warning.line;
        }
        warnings.push_back(std::move(entry));
    }
    const Configuration& current = files_.current();
    const Configuration::Record& record = current.record;
    return {{"files", files_.files()}, {"warnings", std::move(warnings)},
        {"record",
            {{"sensors", record.sensors}, {"disks", record.disks}, {"machine", record.machine},
                {"applications", record.applications}, {"battery", record.battery}}},
        {"check", describeCheck(current.check)}, {"alerts", describeAlerts(current.alerts)}};
}

} // namespace meridal
