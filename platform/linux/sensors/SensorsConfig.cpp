// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/SensorsConfig.h"

#include <algorithm>

namespace meridal {

namespace {

/// Nobody's configuration is longer; what comes after is left out.
constexpr std::size_t mostStatements = 20'000;
constexpr std::size_t longestLabel = 64;

constexpr std::string_view blanks = " \t\r\v\f";

/// Takes the next word off a line, or the next text in quotes with its escapes resolved. Empty at the end and at a
/// comment.
std::string takeWord(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    std::string word;
    if (line.starts_with('#')) {
        line = {};
    }
    if (!line.starts_with('"')) {
        const std::size_t end = std::min(line.find_first_of(" \t\r\v\f#,"), line.size());
        word = line.substr(0, end);
        line.remove_prefix(end);
        return word;
    }
    std::size_t at = 1;
    for (; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\' && at + 1 < line.size()) {
            ++at;
        }
        word += line[at];
    }
    line.remove_prefix(std::min(at + 1, line.size()));
    return word;
}

} // namespace

bool matchesPattern(std::string_view name, std::string_view pattern)
{
    // Where the last star was and what of the name it had eaten: it may have to eat more.
    std::size_t star = std::string_view::npos;
    std::size_t eaten = 0;
    std::size_t at = 0;
    std::size_t inPattern = 0;
    while (at < name.size()) {
        if (inPattern < pattern.size() && pattern[inPattern] == '*') {
            star = inPattern++;
            eaten = at;
        } else if (inPattern < pattern.size() && pattern[inPattern] == name[at]) {
            ++at;
            ++inPattern;
        } else if (star != std::string_view::npos) {
            inPattern = star + 1;
            at = ++eaten;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', inPattern) == std::string_view::npos;
}

SensorsConfig SensorsConfig::read(const RootFolder& root)
{
    SensorsConfig config;
    for (const char* file : {"etc/sensors3.conf", "etc/sensors.conf"}) {
        if (const auto text = root.read(file)) {
            config.add(*text);
            break;
        }
    }
    for (const std::string& name : root.list("etc/sensors.d")) {
        if (!name.starts_with('.')) {
            config.add(root.read("etc/sensors.d/" + name).value_or(""));
        }
    }
    return config;
}

void SensorsConfig::add(std::string_view text)
{
    Section* current = nullptr; // statements before the first "chip" belong to none
    std::string joined;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\\')) { // goes on in the next line
            joined += line.substr(0, line.size() - 1);
            continue;
        }
        joined += line;
        addStatement(joined, current);
        joined.clear();
    }
    addStatement(joined, current);
}

void SensorsConfig::addStatement(std::string_view line, Section*& current)
{
    const std::string what = takeWord(line);
    if (what.empty() || ++statements_ > mostStatements) {
        return;
    }
    if (what == "chip") {
        Section section;
        for (std::string pattern = takeWord(line); !pattern.empty(); pattern = takeWord(line)) {
            section.patterns.push_back(std::move(pattern));
        }
        current = &sections_.emplace_back(std::move(section));
        return;
    }
    if (!current) {
        return;
    }
    std::string channel = takeWord(line);
    if (channel.empty()) {
        return;
    }
    if (what == "label") {
        if (std::string label = takeWord(line).substr(0, longestLabel); !label.empty()) {
            current->labels.insert_or_assign(std::move(channel), std::move(label));
        }
    } else if (what == "ignore") {
        current->ignored.insert_or_assign(std::move(channel), true);
    } else if (what == "compute") {
        // The second formula is the way back, for setting limits.
        if (auto formula = SensorsExpression::parse(line.substr(0, line.find_first_of(",#")))) {
            current->formulas.insert_or_assign(std::move(channel), std::move(*formula));
        }
    }
}

bool SensorsConfig::Section::concerns(std::string_view chip) const
{
    return std::any_of(
        patterns.begin(), patterns.end(), [chip](const std::string& pattern) { return matchesPattern(chip, pattern); });
}

template <typename Map>
const typename Map::mapped_type* SensorsConfig::last(
    Map Section::*map, std::string_view chip, std::string_view channel) const
{
    for (auto section = sections_.rbegin(); section != sections_.rend(); ++section) {
        const auto entry = ((*section).*map).find(channel);
        if (entry != ((*section).*map).end() && section->concerns(chip)) {
            return &entry->second;
        }
    }
    return nullptr;
}

std::optional<std::string> SensorsConfig::label(std::string_view chip, std::string_view channel) const
{
    const std::string* label = last(&Section::labels, chip, channel);
    return label ? std::optional(*label) : std::nullopt;
}

bool SensorsConfig::isIgnored(std::string_view chip, std::string_view channel) const
{
    return last(&Section::ignored, chip, channel) != nullptr;
}

const SensorsExpression* SensorsConfig::formula(std::string_view chip, std::string_view channel) const
{
    return last(&Section::formulas, chip, channel);
}

} // namespace meridal
