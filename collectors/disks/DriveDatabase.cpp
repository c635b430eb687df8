// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/DriveDatabase.h"

#include <regex.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t longestString = 64 * 1024;

using enum RawFormat;
using enum AttributeScope;

struct UsualAttribute {
    std::uint8_t attributeID;
    AttributeScope scope;
    RawFormat format;
    std::string_view name;
};

// clang-format off
constexpr UsualAttribute usual[] = {
    {1, All, Raw48, "Raw_Read_Error_Rate"}, {2, All, Raw48, "Throughput_Performance"},
    {3, Spinning, Average16, "Spin_Up_Time"}, {4, Spinning, Raw48, "Start_Stop_Count"},
    {5, All, Raw16Extra, "Reallocated_Sector_Ct"}, {7, Spinning, Raw48, "Seek_Error_Rate"},
    {8, Spinning, Raw48, "Seek_Time_Performance"}, {9, All, Raw24Extra, "Power_On_Hours"},
    {10, Spinning, Raw48, "Spin_Retry_Count"}, {11, Spinning, Raw48, "Calibration_Retry_Count"},
    {12, All, Raw48, "Power_Cycle_Count"}, {184, All, Raw48, "End-to-End_Error"},
    {187, All, Raw48, "Reported_Uncorrect"}, {188, All, Raw48, "Command_Timeout"},
    {189, Spinning, Raw48, "High_Fly_Writes"}, {190, All, Temperature, "Airflow_Temperature_Cel"},
    {191, Spinning, Raw48, "G-Sense_Error_Rate"}, {192, Spinning, Raw48, "Power-Off_Retract_Count"},
    {193, Spinning, Raw48, "Load_Cycle_Count"}, {194, All, Temperature, "Temperature_Celsius"},
    {196, All, Raw16Extra, "Reallocated_Event_Count"}, {197, All, Raw48, "Current_Pending_Sector"},
    {198, All, Raw48, "Offline_Uncorrectable"}, {199, All, Raw48, "UDMA_CRC_Error_Count"},
    {200, Spinning, Raw48, "Multi_Zone_Error_Rate"}, {220, Spinning, Raw48, "Disk_Shift"},
    {222, Spinning, Raw48, "Loaded_Hours"}, {223, Spinning, Raw48, "Load_Retry_Count"},
    {240, Spinning, Raw24Extra, "Head_Flying_Hours"}, {254, Spinning, Raw48, "Free_Fall_Sensor"},
};

/// Options of before formats had names.
struct OldPreset {
    std::string_view word;
    RawFormat format;
    std::string_view name;
};
constexpr OldPreset oldPresets[] = {
    {"minutes", Minutes, "Power_On_Minutes"}, {"seconds", Seconds, "Power_On_Seconds"},
    {"halfminutes", HalfMinutes, "Power_On_Half_Minutes"}, {"temp", Temperature, "Temperature_Celsius"},
    {"10xCelsius", TemperatureTenths, "Temperature_Celsius_x10"}, {"unknown", Raw48, "Unknown_Attribute"},
    {"emergencyretractcyclect", Raw48, "Emerg_Retract_Cycle_Ct"}, {"loadunload", Raw24Pair, "Load_Unload_Cycle_Count"},
    {"increasing", Raw48, "Total_Pending_Sectors"}, {"offlinescanuncsectorct", Raw48, "Offline_Scan_UNC_SectCt"},
    {"writeerrorcount", Raw48, "Write_Error_Count"}, {"detectedtacount", Raw48, "Detected_TA_Count"},
};
// clang-format on

constexpr std::string_view blanks = " \t\r\n\v\f";

/// Cuts the part before the separator off the front.
std::string_view cut(std::string_view& text, std::string_view separators)
{
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

/// "id,format[:order][,name[,HDD|SSD]]"
void applyPreset(std::string_view preset, AttributeDefinitions& definitions)
{
    const std::string_view number = cut(preset, ",");
    std::string_view format = cut(preset, ",");
    std::string_view name = cut(preset, ",");
    const std::string_view order = format.substr(std::min(format.find(':'), format.size()));
    format.remove_suffix(order.size());
    std::uint8_t attributeID = 0;
    const auto [end, failure] = std::from_chars(number.data(), number.data() + number.size(), attributeID);
    if (failure != std::errc() || end != number.data() + number.size() || attributeID == 0) {
        return;
    }
    auto known = rawFormatNamed(format);
    if (!known) {
        const auto* old = std::find_if(std::begin(oldPresets), std::end(oldPresets),
            [format](const OldPreset& each) { return each.word == format; });
        if (old == std::end(oldPresets)) {
            return;
        }
        known = old->format;
        name = old->name;
    }
    AttributeDefinition& definition = definitions.attributes[attributeID];
    definition.format = *known;
    definition.byteOrder = order.substr(std::min<std::size_t>(order.size(), 1));
    definition.scope = preset == "HDD" ? Spinning : preset == "SSD" ? Solid : All;
    if (!name.empty()) {
        definition.name = name;
    }
}

/// Bounds to what an expression may cost: a compiled one grows with each repetition of a repetition, and one that refers
/// back to a group takes exponential time.
bool isAffordable(std::string_view expression)
{
    constexpr std::uint64_t mostRepetitions = 4096;
    constexpr std::uint64_t largest = 65'536; ///< characters with all repetitions written out
    constexpr int deepest = 32;
    std::uint64_t repetitions = 1;
    int depth = 0;
    char before = 0;
    for (std::size_t at = 0; at < expression.size(); ++at) {
        const char last = std::exchange(before, expression[at]);
        const char here = before;
        if (here == '\\') {
            ++at;
            if (at < expression.size() && expression[at] >= '0' && expression[at] <= '9') {
                return false;
            }
        } else if (here == '(' || here == ')') {
            depth += here == '(' ? 1 : -1;
        } else if (here == '{') {
            std::string_view bounds = expression.substr(at + 1, 16);
            bounds = bounds.substr(0, bounds.find('}'));
            std::uint64_t most = 1;
            while (!bounds.empty()) {
                const std::string_view bound = cut(bounds, ",");
                std::uint64_t times = 1;
                std::from_chars(bound.data(), bound.data() + bound.size(), times);
                most = std::max(most, times);
            }
            repetitions *= std::min(most, mostRepetitions + 1);
        } else if (here == '+' && std::string_view(")+*?}").find(last) != std::string_view::npos) {
            repetitions *= 2; // one, and then any number: what is repeated stands there twice
        }
        if (depth > deepest || repetitions > mostRepetitions) {
            return false;
        }
    }
    return repetitions * expression.size() <= largest && expression.find('\0') == std::string_view::npos;
}

bool isForDisks(const DriveEntry& entry)
{
    return !entry.model.empty() && !entry.family.starts_with('$') && !entry.family.starts_with("USB:")
        && !entry.family.starts_with("VERSION") && entry.family != "DEFAULT";
}

} // namespace

AttributeDefinitions usualDefinitions()
{
    AttributeDefinitions definitions;
    for (const UsualAttribute& each : usual) {
        definitions.attributes[each.attributeID] = {
            .name = std::string(each.name), .format = each.format, .byteOrder = {}, .scope = each.scope};
    }
    return definitions;
}

// The text

/// To what is neither blank nor comment.
std::optional<char> DriveDatabaseReader::skipToToken()
{
    while (true) {
        at_ = std::min(text_.find_first_not_of(blanks, at_), text_.size());
        const std::string_view begin = text_.substr(at_, 2);
        if (begin == "//") {
            at_ = std::min(text_.find('\n', at_), text_.size());
        } else if (begin == "/*") {
            const std::size_t end = text_.find("*/", at_ + 2);
            at_ = end == std::string_view::npos ? text_.size() : end + 2;
        } else {
            return begin.empty() ? std::nullopt : std::optional(begin.front());
        }
    }
}

/// What stands between quotation marks. A string that does not end ends with its line.
void DriveDatabaseReader::readString(std::string& into)
{
    ++at_;
    while (at_ < text_.size() && text_[at_] != '"' && text_[at_] != '\n') {
        char here = text_[at_++];
        if (here == '\\' && at_ < text_.size()) {
            here = text_[at_++];
            here = here == 'n' ? '\n' : here == 't' ? '\t' : here;
        }
        if (into.size() < longestString) {
            into += here;
        }
    }
    at_ = std::min(at_ + 1, text_.size());
}

/// Strings side by side are one.
std::optional<std::string> DriveDatabaseReader::readStrings()
{
    std::optional<std::string> strings;
    while (skipToToken() == '"') {
        readString(strings ? *strings : strings.emplace());
    }
    return strings;
}

std::optional<DriveEntry> DriveDatabaseReader::next()
{
    while (const auto token = skipToToken()) {
        if (*token == '"') {
            readStrings(); // outside of an entry
            continue;
        }
        ++at_;
        if (*token != '{') {
            continue;
        }
        std::array<std::string, 5> fields;
        std::size_t count = 0;
        for (std::optional<std::string> field; count < fields.size() && (field = readStrings()); ++count) {
            fields[count] = std::move(*field);
            if (skipToToken() == ',') {
                ++at_;
            }
        }
        if (count == fields.size() && skipToToken() == '}') {
            return DriveEntry{.family = std::move(fields[0]),
                .model = std::move(fields[1]),
                .firmware = std::move(fields[2]),
                .warning = std::move(fields[3]),
                .presets = std::move(fields[4])};
        }
    }
    return std::nullopt;
}

// What it says

bool matchesWhole(const std::string& expression, const std::string& text)
{
    if (!isAffordable(expression)) {
        return false;
    }
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + expression + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        return false;
    }
    const bool matches = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matches;
}

void applyPresets(std::string_view presets, AttributeDefinitions& definitions)
{
    std::string_view option;
    while (!presets.empty()) {
        const std::string_view word = cut(presets, blanks);
        if (word.empty()) {
            continue;
        }
        if (option == "-v") {
            applyPreset(word, definitions);
        }
        option = option.empty() && word.starts_with('-') ? word : std::string_view();
    }
}

AttributeDefinitions definitionsFor(std::string_view database, const std::string& model, const std::string& firmware)
{
    AttributeDefinitions definitions = usualDefinitions();
    DriveDatabaseReader reader(database);
    bool hasDefault = false;
    std::string presets;
    for (auto entry = reader.next(); entry && !(hasDefault && definitions.isKnownModel); entry = reader.next()) {
        if (entry->family == "DEFAULT" && !hasDefault) {
            hasDefault = true;
            applyPresets(entry->presets, definitions);
        } else if (!definitions.isKnownModel && !model.empty() && isForDisks(*entry)
            && matchesWhole(entry->model, model)
            && (entry->firmware.empty() || matchesWhole(entry->firmware, firmware))) {
            definitions.isKnownModel = true;
            presets = std::move(entry->presets);
        }
    }
    applyPresets(presets, definitions);
    return definitions;
}

} // namespace meridal
