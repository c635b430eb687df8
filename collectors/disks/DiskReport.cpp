// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/DiskReport.h"

#include "collectors/disks/SMARTStatCollector.h"
#include "collectors/disks/SMARTStatCollectorItem.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

struct WarningText {
    NVMeWarning warning;
    const char* text;
};

constexpr std::array<WarningText, 6> warningTexts = {{
    {NVMeWarning::SpareLow, "its spare memory is used up; copy the data while it can be read"},
    {NVMeWarning::Temperature, "it is too hot or too cold"},
    {NVMeWarning::Unreliable, "it has become unreliable: too many errors"},
    {NVMeWarning::ReadOnly, "it can only be read any more"},
    {NVMeWarning::BackupFailed, "what keeps data in flight safe from power cuts has failed"},
    {NVMeWarning::PersistentMemory, "its persistent memory has become unreliable"},
}};

const char* nameOf(const SMARTStatCollectorItem& disk)
{
    if (disk.readingFor() > SMARTStatCollector::patience) {
        return "hanging";
    }
    switch (disk.state()) {
    case DiskState::Unread:
        return "unread";
    case DiskState::Read:
        return "awake";
    case DiskState::Asleep:
        return "asleep";
    case DiskState::PowerHidden:
        return "hidden";
    case DiskState::SwitchedOff:
        return "off";
    case DiskState::Denied:
        return "denied";
    case DiskState::Silent:
        return "silent";
    }
    return "";
}

const char* nameOf(AttributeStatus status)
{
    switch (status) {
    case AttributeStatus::FailingNow:
        return "failing";
    case AttributeStatus::FailedInThePast:
        return "failed before";
    case AttributeStatus::Fine:
        break;
    }
    return "fine";
}

std::string titleOf(const SMARTStatCollectorAttribute& attribute)
{
    return attribute.name().value_or(fmt::format("Attribute {}", attribute.attributeID()));
}

std::string complaintOf(const SMARTStatCollectorAttribute& attribute)
{
    if (attribute.status() == AttributeStatus::Fine && !attribute.hasDefects()) {
        return {};
    }
    const std::string meaning = attribute.meaning().empty() ? "" : ": " + attribute.meaning();
    switch (attribute.status()) {
    case AttributeStatus::FailingNow:
        return titleOf(attribute) + " is below its threshold" + meaning;
    case AttributeStatus::FailedInThePast:
        return titleOf(attribute) + " has been below its threshold" + meaning;
    case AttributeStatus::Fine:
        break;
    }
    // Lost sectors matter before the vendor's threshold is reached.
    return fmt::format("{}: {:.0f}{}", titleOf(attribute), attribute.currentValue().formatted,
        attribute.meaning().empty() ? "" : " - " + attribute.meaning());
}

Dictionary describeAttribute(const SMARTStatCollectorAttribute& attribute)
{
    const smartattribute& now = attribute.currentValue();
    Dictionary entry = Dictionary::object();
    // In its order, which saves looking for the place: a disk has dozens of these.
    auto& fields = entry.get_ref<Dictionary::object_t&>();
    fields.emplace_hint(fields.end(), "current", now.current);
    fields.emplace_hint(fields.end(), "id", attribute.attributeID());
    fields.emplace_hint(fields.end(), "name", titleOf(attribute));
    fields.emplace_hint(fields.end(), "predictsFailure", attribute.predictsFailure());
    fields.emplace_hint(fields.end(), "raw", attribute.lastRawValue());
    fields.emplace_hint(fields.end(), "status", nameOf(attribute.status()));
    fields.emplace_hint(fields.end(), "threshold", now.threshold);
    fields.emplace_hint(fields.end(), "value", attribute.value());
    fields.emplace_hint(fields.end(), "worst", now.worst);
    if (!attribute.meaning().empty()) {
        entry["meaning"] = attribute.meaning();
    }
    return entry;
}

/// The counters of an NVMe health log, in the base units of their names.
Dictionary describeHealth(const NVMeHealth& health)
{
    Value sensors = Value::array();
    for (const auto& sensor : health.sensors) {
        if (sensor) {
            sensors.push_back(*sensor);
        }
    }
    return {{"criticalWarning", health.criticalWarning}, {"availableSpare", health.availableSpare},
        {"spareThreshold", health.spareThreshold}, {"bytesRead", health.dataRead}, {"bytesWritten", health.dataWritten},
        {"unsafeShutdowns", health.unsafeShutdowns}, {"mediaErrors", health.mediaErrors},
        {"errorLogEntries", health.errorLogEntries}, {"readCommands", health.readCommands},
        {"writeCommands", health.writeCommands}, {"busyTime", health.busyTime},
        {"warningTemperatureTime", health.warmTime}, {"criticalTemperatureTime", health.hotTime},
        {"sensors", std::move(sensors)}};
}

Value problemsOf(const SMARTStatCollectorItem& disk)
{
    Value problems = Value::array();
    if (const auto& health = disk.nvmeHealth()) {
        for (const WarningText& entry : warningTexts) {
            if ((health->criticalWarning & static_cast<unsigned>(entry.warning)) != 0) {
                problems.push_back(entry.text);
            }
        }
        if (health->mediaErrors > 0) {
            problems.push_back(fmt::format("{:.0f} errors of its memory", health->mediaErrors));
        }
    }
    for (const auto& [attributeID, attribute] : disk.attributes()) {
        if (std::string complaint = complaintOf(attribute); !complaint.empty()) {
            problems.push_back(std::move(complaint));
        }
    }
    if (const auto wear = disk.wear(); wear && *wear >= 100) {
        problems.push_back(fmt::format("its rated life is used up ({:.0f} %)", *wear));
    }
    if (disk.overallStatus() == false && problems.empty()) {
        problems.push_back("the disk itself predicts that it will fail; copy the data while it can be read");
    }
    return problems;
}

} // namespace

Dictionary describeDisk(const SMARTStatCollectorItem& disk, ReportedAttributes attributes)
{
    Dictionary report{{"key", disk.key().value_or("")}, {"kind", disk.nvme() ? "nvme" : "ata"}, {"state", nameOf(disk)},
        {"problems", problemsOf(disk)}};
    put(report, "serial", disk.serial());
    put(report, "model", disk.model());
    put(report, "firmware", disk.firmware());
    put(report, "bsd", disk.bsd());
    put(report, "spins", disk.nvme() ? std::optional(false) : disk.spins());
    put(report, "healthy", disk.overallStatus());
    put(report, "temperature", disk.temperature());
    put(report, "wear", disk.wear());
    put(report, "powerOn", disk.powerOnSeconds());
    put(report, "powerCycles", disk.powerCycles());
    put(report, "bytesWritten", disk.bytesWritten());
    put(report, "bytesRead", disk.bytesRead());
    if (disk.lastStatusUpdate() > 0) {
        report["time"] = disk.lastStatusUpdate();
    }
    if (disk.nvmeHealth()) {
        report["log"] = describeHealth(*disk.nvmeHealth());
    }
    Value list = Value::array();
    for (const auto& [attributeID, attribute] : disk.attributes()) {
        if (attributes == ReportedAttributes::All || attribute.status() != AttributeStatus::Fine
            || attribute.hasDefects()) {
            list.push_back(describeAttribute(attribute));
        }
    }
    report["attributes"] = std::move(list);
    return report;
}

} // namespace meridal
