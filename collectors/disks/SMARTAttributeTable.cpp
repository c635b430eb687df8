// Names and formats of ATA SMART attributes. The standard fixes the shape of an attribute and leaves its meaning to the
// vendor; what stands here is what disks in the field agree on, and below it where single vendors do not.

#include "collectors/disks/SMARTAttributeTable.h"

#include <algorithm>
#include <array>

namespace meridal {

namespace {

using enum RawFormat;
using enum AttributeScope;
using Role = AttributeRole;

constexpr std::string_view surface = "the surface or the heads lose data";
constexpr std::string_view mechanics = "the mechanics wear out";
constexpr std::string_view noSpares = "spare sectors run out; copy the data while it can be read";
constexpr std::string_view unreadable = "some sectors cannot be read any more";
constexpr std::string_view flashWorn = "the flash memory is worn out";
constexpr std::string_view cable = "data is damaged on its way; check cable and connectors";
constexpr std::string_view tooHot = "it is or has been too hot";
constexpr std::string_view electronics = "its electronics lose data";

// One line an attribute: this is data, and is read and compared as such.
// clang-format off
constexpr SMARTAttributeInfo common[] = {
    {1, All, "Raw read error rate", Raw48, Role::None, surface},
    {2, All, "Throughput performance", Raw48, Role::None, mechanics},
    {3, Spinning, "Spin-up time", Milliseconds, Role::None, mechanics},
    {4, Spinning, "Starts and stops", Raw48, Role::None, mechanics},
    {5, All, "Reallocated sectors", Low16, Role::Defects, noSpares},
    {7, Spinning, "Seek error rate", Raw48, Role::None, mechanics},
    {8, Spinning, "Seek time performance", Raw48, Role::None, mechanics},
    {9, All, "Power-on time", HoursAndFraction, Role::PowerOnTime, "it has reached its age"},
    {10, Spinning, "Spin retries", Raw48, Role::None, mechanics},
    {11, Spinning, "Recalibration retries", Raw48, Role::None, mechanics},
    {12, All, "Power cycles", Raw48, Role::PowerCycles, "it has been switched on more often than it is made for"},
    {13, All, "Soft read error rate", Raw48, Role::None, surface},
    {22, Spinning, "Helium level", Raw48, Role::None, "it loses its helium"},
    {170, Solid, "Reserved space", Raw48, Role::None, noSpares},
    {171, Solid, "Program failures", Raw48, Role::None, flashWorn},
    {172, Solid, "Erase failures", Raw48, Role::None, flashWorn},
    {173, Solid, "Wear levelling", Raw48, Role::LifeLeft, flashWorn},
    {174, Solid, "Unexpected power losses", Raw48, Role::None, {}},
    {175, Solid, "Power-loss protection failures", Raw48, Role::None, "data in flight is lost when the power fails"},
    {176, Solid, "Erase failures of chips", Raw48, Role::None, flashWorn},
    {177, Solid, "Wear levelling", Raw48, Role::LifeLeft, flashWorn},
    {178, Solid, "Used reserved blocks of chips", Raw48, Role::None, noSpares},
    {179, Solid, "Used reserved blocks", Raw48, Role::None, noSpares},
    {180, Solid, "Unused reserved blocks", Raw48, Role::None, noSpares},
    {181, Solid, "Program failures in all", Raw48, Role::None, flashWorn},
    {182, Solid, "Erase failures in all", Raw48, Role::None, flashWorn},
    {183, All, "Interface downshifts", Raw48, Role::None, cable},
    {184, All, "End-to-end errors", Raw48, Role::Defects, electronics},
    {187, All, "Uncorrectable errors reported", Raw48, Role::Defects, unreadable},
    {188, All, "Command timeouts", Low16, Role::None, cable},
    {189, Spinning, "High-fly writes", Raw48, Role::None, surface},
    {190, All, "Airflow temperature", Temperature, Role::Temperature, tooHot},
    {191, Spinning, "Shocks", Raw48, Role::None, "it has been shaken too hard"},
    {192, All, "Unsafe shutdowns", Raw48, Role::None, {}},
    {193, Spinning, "Head load cycles", Raw48, Role::None, mechanics},
    {194, All, "Temperature", Temperature, Role::Temperature, tooHot},
    {195, All, "Errors corrected", Raw48, Role::None, surface},
    {196, All, "Reallocation events", Low16, Role::None, noSpares},
    {197, All, "Pending sectors", Raw48, Role::Defects, unreadable},
    {198, All, "Uncorrectable sectors", Raw48, Role::Defects, unreadable},
    {199, All, "Interface CRC errors", Raw48, Role::None, cable},
    {200, Spinning, "Write error rate", Raw48, Role::None, surface},
    {201, All, "Soft read error rate", Raw48, Role::None, surface},
    {202, Solid, "Life used", Raw48, Role::LifeUsed, flashWorn},
    {206, Solid, "Write error rate", Raw48, Role::None, flashWorn},
    {210, Solid, "Parity recoveries", Raw48, Role::None, electronics},
    {220, Spinning, "Disk shift", Raw48, Role::None, mechanics},
    {222, Spinning, "Loaded time", Hours, Role::None, mechanics},
    {223, Spinning, "Load retries", Raw48, Role::None, mechanics},
    {224, Spinning, "Load friction", Raw48, Role::None, mechanics},
    {225, Spinning, "Head load cycles", Raw48, Role::None, mechanics},
    {226, Spinning, "Load-in time", Raw48, Role::None, mechanics},
    {230, Solid, "Life curve status", Raw48, Role::None, flashWorn},
    {231, Solid, "Life left", Raw48, Role::LifeLeft, flashWorn},
    {232, Solid, "Available reserved space", Raw48, Role::None, noSpares},
    {233, Solid, "Media wearout", Raw48, Role::LifeLeft, flashWorn},
    {240, Spinning, "Head flying time", HoursAndFraction, Role::None, mechanics},
    {241, All, "Data written", Sectors, Role::None, {}},
    {242, All, "Data read", Sectors, Role::None, {}},
    {250, All, "Read retries", Raw48, Role::None, surface},
    {254, Spinning, "Free falls", Raw48, Role::None, "it has been dropped"},
};

// Seagate keeps operations and errors in one number, so that a healthy disk shows large ones.
constexpr std::string_view seagateModels[] = {"ST", "Seagate ", "SEAGATE "};
constexpr SMARTAttributeInfo seagate[] = {
    {1, Spinning, "Raw read error rate", ErrorsOfOperations, Role::None, surface},
    {7, Spinning, "Seek error rate", ErrorsOfOperations, Role::None, mechanics},
    {195, Spinning, "Errors corrected", ErrorsOfOperations, Role::None, surface},
    {188, Spinning, "Command timeouts", Words, Role::None, cable},
};

constexpr std::string_view samsungModels[] = {"Samsung SSD", "SAMSUNG MZ", "SAMSUNG SSD"};
constexpr SMARTAttributeInfo samsungSolid[] = {
    {179, Solid, "Used reserved blocks", Raw48, Role::None, noSpares},
    {195, Solid, "ECC errors", Raw48, Role::None, electronics},
    {235, Solid, "Recoveries from power loss", Raw48, Role::None, {}},
    {243, Solid, "Voltage range faults", Raw48, Role::None, {}},
};

constexpr std::string_view intelModels[] = {"INTEL SSD", "SSDSC2"};
constexpr SMARTAttributeInfo intel[] = {
    {192, Solid, "Unsafe shutdowns", Raw48, Role::None, {}},
    {225, Solid, "Data written", Mebibytes32, Role::None, {}},
    {226, Solid, "Media wear of the workload", Raw48, Role::None, {}},
    {227, Solid, "Reads of the workload", Raw48, Role::None, {}},
    {228, Solid, "Time of the workload", Minutes, Role::None, {}},
    {241, Solid, "Data written", Mebibytes32, Role::None, {}},
    {242, Solid, "Data read", Mebibytes32, Role::None, {}},
};

constexpr std::string_view micronModels[] = {"Crucial_CT", "CT", "Micron_", "MTFD"};
constexpr SMARTAttributeInfo micron[] = {
    {173, Solid, "Average erasures of a block", Raw48, Role::None, flashWorn},
    {180, Solid, "Unused reserved blocks", Raw48, Role::None, noSpares},
    {202, Solid, "Life used", Raw48, Role::LifeUsed, flashWorn},
    {246, Solid, "Data written", Sectors, Role::None, {}},
    {247, Solid, "Pages written by hosts", Raw48, Role::None, {}},
    {248, Solid, "Pages written by itself", Raw48, Role::None, {}},
};

// 169 and not 173 or 177 counts down there.
constexpr std::string_view sandiskModels[] = {"SanDisk", "WDC WDS", "WD Blue SA510"};
constexpr SMARTAttributeInfo sandisk[] = {
    {165, Solid, "Erasures in all", Raw48, Role::None, {}},
    {169, Solid, "Life left", Raw48, Role::LifeLeft, flashWorn},
    {173, Solid, "Average erasures of a block", Raw48, Role::None, flashWorn},
    {230, Solid, "Media wearout", Hex48, Role::None, flashWorn},
    {233, Solid, "Written to flash", Gibibytes, Role::None, {}},
    {241, Solid, "Data written", Gibibytes, Role::None, {}},
    {242, Solid, "Data read", Gibibytes, Role::None, {}},
};

// Controllers that many brands of cheap disks share.
constexpr std::string_view kingstonModels[] = {"KINGSTON S", "OWC Mercury", "Patriot "};
constexpr SMARTAttributeInfo kingston[] = {
    {169, Solid, "Life left", Raw48, Role::LifeLeft, flashWorn},
    {231, Solid, "Life left", Raw48, Role::LifeLeft, flashWorn},
    {233, Solid, "Written to flash", Gibibytes, Role::None, {}},
    {241, Solid, "Data written", Gibibytes, Role::None, {}},
    {242, Solid, "Data read", Gibibytes, Role::None, {}},
};

// Power-on time in minutes on the older ones.
constexpr std::string_view maxtorModels[] = {"Maxtor ", "MAXTOR "};
constexpr SMARTAttributeInfo maxtor[] = {
    {9, Spinning, "Power-on time", Minutes, Role::PowerOnTime, "it has reached its age"},
    {194, Spinning, "Temperature", Temperature, Role::Temperature, tooHot},
};

constexpr std::string_view fujitsuModels[] = {"FUJITSU MH", "FUJITSU MP"};
constexpr SMARTAttributeInfo fujitsu[] = {
    {9, Spinning, "Power-on time", Seconds, Role::PowerOnTime, "it has reached its age"},
};

constexpr std::string_view samsungSpinningModels[] = {"SAMSUNG SV", "SAMSUNG SP"};
constexpr SMARTAttributeInfo samsungSpinning[] = {
    {9, Spinning, "Power-on time", HalfMinutes, Role::PowerOnTime, "it has reached its age"},
    {194, Spinning, "Temperature", TemperatureTenths, Role::Temperature, tooHot},
};

constexpr std::string_view appleModels[] = {"APPLE SSD", "Apple SSD"};
constexpr SMARTAttributeInfo apple[] = {
    {173, Solid, "Erasures", Words, Role::LifeLeft, flashWorn},
    {174, Solid, "Data read", Mebibytes32, Role::None, {}},
    {175, Solid, "Data written", Mebibytes32, Role::None, {}},
};
// clang-format on

constexpr SMARTVendorExceptions vendors[] = {
    {seagateModels, seagate},
    {samsungModels, samsungSolid},
    {intelModels, intel},
    {micronModels, micron},
    {sandiskModels, sandisk},
    {kingstonModels, kingston},
    {maxtorModels, maxtor},
    {fujitsuModels, fujitsu},
    {samsungSpinningModels, samsungSpinning},
    {appleModels, apple},
};

bool applies(const SMARTAttributeInfo& info, std::uint8_t attributeID, std::optional<bool> spins)
{
    return info.attributeID == attributeID && (info.scope == All || !spins || *spins == (info.scope == Spinning));
}

const SMARTAttributeInfo* findIn(
    std::span<const SMARTAttributeInfo> entries, std::uint8_t attributeID, std::optional<bool> spins)
{
    const auto found = std::find_if(
        entries.begin(), entries.end(), [&](const auto& info) { return applies(info, attributeID, spins); });
    return found == entries.end() ? nullptr : &*found;
}

} // namespace

const SMARTAttributeInfo* attributeInfo(std::uint8_t attributeID, std::string_view model, std::optional<bool> spins)
{
    for (const SMARTVendorExceptions& vendor : vendors) {
        const bool isTheirs = std::any_of(vendor.models.begin(), vendor.models.end(),
            [model](std::string_view beginning) { return model.starts_with(beginning); });
        const SMARTAttributeInfo* info = isTheirs ? findIn(vendor.attributes, attributeID, spins) : nullptr;
        if (info) {
            return info;
        }
    }
    return findIn(common, attributeID, spins);
}

std::span<const SMARTAttributeInfo> commonAttributes() { return common; }

std::span<const SMARTVendorExceptions> vendorExceptions() { return vendors; }

} // namespace meridal
