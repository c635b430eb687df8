// SPDX-License-Identifier: Apache-2.0
// What names in the database of drives mean. The standard leaves the meaning of an attribute to the vendor, so a number says
// nothing: 198 is unreadable sectors on most disks, and gigabytes read by the host on others. A name tells.

#include "collectors/disks/AttributeMeanings.h"

#include <algorithm>
#include <iterator>

namespace meridal {

namespace {

using Role = AttributeRole;
using enum LifeScale;

constexpr double sector = 0; ///< of the disk
constexpr double mebibyte = 1024.0 * 1024;
constexpr double gibibyte = 1024 * mebibyte;
constexpr double gigabyte = 1e9;

constexpr std::string_view surface = "the surface or the heads lose data";
constexpr std::string_view mechanics = "the mechanics wear out";
constexpr std::string_view noSpares = "spare sectors run out; copy the data while it can be read";
constexpr std::string_view unreadable = "some sectors cannot be read any more";
constexpr std::string_view flashWorn = "the flash memory is worn out";
constexpr std::string_view cable = "data is damaged on its way; check cable and connectors";
constexpr std::string_view tooHot = "it is or has been too hot";
constexpr std::string_view electronics = "its electronics lose data";
constexpr std::string_view aged = "it has reached its age";
constexpr std::string_view cycles = "it has been switched on more often than it is made for";

// One line a name: this is data, and is read and compared as such. Of those for life the first that a disk has counts: what
// is meant as the rest of its life before what is worked out from erasures.
// clang-format off
constexpr AttributeMeaning meanings[] = {
    {"Remaining_Lifetime_Perc", "Life left", flashWorn, Role::Life, RawLeft},
    {"Lifetime_Remaining%", "Life left", flashWorn, Role::Life, RawLeft},
    {"Remaining_Life", "Life left", flashWorn, Role::Life, RawLeft},
    {"PCT_Life_Remaining", "Life left", flashWorn, Role::Life, RawLeft},
    {"Perc_Rated_Life_Remain", "Life left", flashWorn, Role::Life, RawLeft},
    {"Percent_Lifetime_Used", "Life used", flashWorn, Role::Life, RawUsed},
    {"Perc_Rated_Life_Used", "Life used", flashWorn, Role::Life, RawUsed},
    {"Percent_Life_Used", "Life used", flashWorn, Role::Life, RawUsed},
    {"Drive_Life_Used%", "Life used", flashWorn, Role::Life, RawUsed},
    {"Percent_Lifetime_Remain", "Life left", flashWorn, Role::Life, CurrentLeft},
    {"Percent_Life_Remaining", "Life left", flashWorn, Role::Life, CurrentLeft},
    {"SSD_Life_Left", "Life left", flashWorn, Role::Life, CurrentLeft, 1, 231},
    {"SSD_Life_Left_Perc", "Life left", flashWorn, Role::Life, CurrentLeft},
    {"Lifetime_Left", "Life left", flashWorn, Role::Life, CurrentLeft},
    {"Media_Wearout_Indicator", "Media wearout", flashWorn, Role::Life, WordsUsed, 1, 230},
    {"Perc_Write/Erase_Count", "Media wearout", flashWorn, Role::Life, WordsUsed, 1, 230},
    {"Wear_Leveling_Count", "Wear levelling", flashWorn, Role::Life, CurrentKept},
    {"Media_Wearout_Indicator", "Media wearout", flashWorn, Role::Life, CurrentKept, 1, 233},

    {"Temperature_Celsius", "Temperature", tooHot, Role::Temperature},
    {"Temperature_Celsius_x10", "Temperature", tooHot, Role::Temperature},
    {"Temperature_Internal", "Temperature", tooHot, Role::Temperature},
    {"Drive_Temperature", "Temperature", tooHot, Role::Temperature},
    {"Device_Temperature", "Temperature", tooHot, Role::Temperature},
    {"Temperature_Case", "Case temperature", tooHot, Role::Temperature},
    {"Case_Temperature", "Case temperature", tooHot, Role::Temperature},
    {"Airflow_Temperature_Cel", "Airflow temperature", tooHot, Role::Temperature},

    {"Power_On_Hours", "Power-on time", aged, Role::PowerOnTime},
    {"Power_On_Hours_and_Msec", "Power-on time", aged, Role::PowerOnTime},
    {"Power_On_Minutes", "Power-on time", aged, Role::PowerOnTime},
    {"Power_On_Seconds", "Power-on time", aged, Role::PowerOnTime},
    {"Power_On_Half_Minutes", "Power-on time", aged, Role::PowerOnTime},
    {"Power_Cycle_Count", "Power cycles", cycles, Role::PowerCycles},
    {"Device_Power_Cycle_Cnt", "Power cycles", cycles, Role::PowerCycles},

    {"Reallocated_Sector_Ct", "Reallocated sectors", noSpares, Role::Defects},
    {"Reallocate_NAND_Blk_Cnt", "Reallocated blocks", noSpares, Role::Defects},
    {"Reallocated_Block_Count", "Reallocated blocks", noSpares, Role::Defects},
    {"End-to-End_Error", "End-to-end errors", electronics, Role::Defects},
    {"End-to-End_Error_Count", "End-to-end errors", electronics, Role::Defects},
    {"Reported_Uncorrect", "Uncorrectable errors reported", unreadable, Role::Defects},
    {"Reported_UE_Counts", "Uncorrectable errors reported", unreadable, Role::Defects},
    {"Uncorrectable_Error_Cnt", "Uncorrectable errors", unreadable, Role::Defects},
    {"Uncorrectable_Sectors", "Uncorrectable sectors", unreadable, Role::Defects},
    {"Current_Pending_Sector", "Pending sectors", unreadable, Role::Defects},
    {"Pending_Sector_Count", "Pending sectors", unreadable, Role::Defects},
    {"Offline_Uncorrectable", "Uncorrectable sectors", unreadable, Role::Defects},
    {"Offline_Scan_UNC_SectCt", "Uncorrectable sectors", unreadable, Role::Defects},

    {"Total_LBAs_Written", "Data written", {}, Role::BytesWritten, CurrentLeft, sector},
    {"Write_Sectors_Tot_Ct", "Data written", {}, Role::BytesWritten, CurrentLeft, sector},
    {"Host_Writes_MiB", "Data written", {}, Role::BytesWritten, CurrentLeft, mebibyte},
    {"Host_Writes_32MiB", "Data written", {}, Role::BytesWritten, CurrentLeft, 32 * mebibyte},
    {"Host_Writes_GiB", "Data written", {}, Role::BytesWritten, CurrentLeft, gibibyte},
    {"Lifetime_Writes_GiB", "Data written", {}, Role::BytesWritten, CurrentLeft, gibibyte},
    {"Total_Writes_GiB", "Data written", {}, Role::BytesWritten, CurrentLeft, gibibyte},
    {"Total_Writes_GB", "Data written", {}, Role::BytesWritten, CurrentLeft, gigabyte},
    {"Lifetime_Wts_Frm_Hst_GB", "Data written", {}, Role::BytesWritten, CurrentLeft, gigabyte},
    {"Total_LBAs_Read", "Data read", {}, Role::BytesRead, CurrentLeft, sector},
    {"Read_Sectors_Tot_Ct", "Data read", {}, Role::BytesRead, CurrentLeft, sector},
    {"Host_Reads_MiB", "Data read", {}, Role::BytesRead, CurrentLeft, mebibyte},
    {"Host_Reads_32MiB", "Data read", {}, Role::BytesRead, CurrentLeft, 32 * mebibyte},
    {"Host_Reads_GiB", "Data read", {}, Role::BytesRead, CurrentLeft, gibibyte},
    {"Lifetime_Reads_GiB", "Data read", {}, Role::BytesRead, CurrentLeft, gibibyte},
    {"Total_Reads_GiB", "Data read", {}, Role::BytesRead, CurrentLeft, gibibyte},
    {"Total_Reads_GB", "Data read", {}, Role::BytesRead, CurrentLeft, gigabyte},
    {"Lifetime_Rds_Frm_Hst_GB", "Data read", {}, Role::BytesRead, CurrentLeft, gigabyte},

    {"Raw_Read_Error_Rate", "Raw read error rate", surface},
    {"Throughput_Performance", "Throughput performance", mechanics},
    {"Spin_Up_Time", "Spin-up time", mechanics},
    {"Start_Stop_Count", "Starts and stops", mechanics},
    {"Seek_Error_Rate", "Seek error rate", mechanics},
    {"Seek_Time_Performance", "Seek time performance", mechanics},
    {"Spin_Retry_Count", "Spin retries", mechanics},
    {"Calibration_Retry_Count", "Recalibration retries", mechanics},
    {"Helium_Level", "Helium level", "it loses its helium"},
    {"Available_Reservd_Space", "Available reserved space", noSpares},
    {"Reallocated_Event_Count", "Reallocation events", noSpares},
    {"Retired_Block_Count", "Retired blocks", noSpares},
    {"Runtime_Bad_Block", "Bad blocks found in use", noSpares},
    {"Program_Fail_Count", "Program failures", flashWorn},
    {"Erase_Fail_Count", "Erase failures", flashWorn},
    {"Command_Timeout", "Command timeouts", cable},
    {"UDMA_CRC_Error_Count", "Interface CRC errors", cable},
    {"SATA_CRC_Error_Count", "Interface CRC errors", cable},
    {"CRC_Error_Count", "Interface CRC errors", cable},
    {"High_Fly_Writes", "High-fly writes", surface},
    {"G-Sense_Error_Rate", "Shocks", "it has been shaken too hard"},
    {"Free_Fall_Sensor", "Free falls", "it has been dropped"},
    {"Power-Off_Retract_Count", "Unsafe shutdowns", {}},
    {"Unsafe_Shutdown_Count", "Unsafe shutdowns", {}},
    {"Unexpect_Power_Loss_Ct", "Unexpected power losses", {}},
    {"Load_Cycle_Count", "Head load cycles", mechanics},
    {"Multi_Zone_Error_Rate", "Write error rate", surface},
    {"Loaded_Hours", "Loaded time", mechanics},
    {"Load_Retry_Count", "Load retries", mechanics},
    {"Disk_Shift", "Disk shift", mechanics},
    {"Head_Flying_Hours", "Head flying time", mechanics},
};
// clang-format on

/// Names that say that nobody knows.
bool isUnknown(std::string_view name)
{
    return name.empty() || name.starts_with("Unkn") || name == "Not_In_Use" || name == "Not_Supported"
        || name.starts_with("Proprietary_");
}

std::string titleFromName(std::string_view name)
{
    std::string title(name);
    std::replace(title.begin(), title.end(), '_', ' ');
    return title;
}

/// Of a model that nobody has looked at, that is believed on which all vendors agree: temperature where it is plausible, the
/// lost sectors of disks that spin, and hours of disks young enough not to count in minutes or seconds.
bool isCertain(AttributeRole role, const DiskTraits& disk)
{
    switch (role) {
    case Role::Temperature:
    case Role::PowerCycles:
        return true;
    case Role::PowerOnTime:
        return disk.isModern || disk.spins == false;
    case Role::Defects:
        return disk.spins == true;
    default:
        return false;
    }
}

} // namespace

const AttributeMeaning* meaningOf(std::string_view name, std::uint8_t attributeID)
{
    const auto* found = std::find_if(std::begin(meanings), std::end(meanings), [&](const AttributeMeaning& each) {
        return each.name == name && (each.attributeID == 0 || each.attributeID == attributeID);
    });
    return found == std::end(meanings) ? nullptr : found;
}

std::size_t lifeRank(const AttributeMeaning& meaning) { return static_cast<std::size_t>(&meaning - meanings); }

AttributeDescription describeAttribute(
    std::uint8_t attributeID, const AttributeDefinitions& definitions, const DiskTraits& disk)
{
    AttributeDescription description;
    const auto found = definitions.attributes.find(attributeID);
    if (found == definitions.attributes.end()) {
        return description;
    }
    const AttributeDefinition& definition = found->second;
    description.format = definition.format;
    description.byteOrder = definition.byteOrder;
    const bool isOfOtherKind = definition.scope != AttributeScope::All && disk.spins
        && *disk.spins != (definition.scope == AttributeScope::Spinning);
    if (isOfOtherKind || isUnknown(definition.name)) {
        return description;
    }
    description.meaning = meaningOf(definition.name, attributeID);
    if (!description.meaning) {
        description.title = titleFromName(definition.name);
        return description;
    }
    description.title = description.meaning->title;
    description.unit = description.meaning->unit == sector ? disk.sectorSize : description.meaning->unit;
    if (definitions.isKnownModel || isCertain(description.meaning->role, disk)) {
        description.role = description.meaning->role;
    }
    return description;
}

} // namespace meridal
