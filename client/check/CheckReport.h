// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// How something is, the worse the later. What is known to be critical must not hide behind what is not known; what is not
/// known may be critical, and so counts for more than a warning, which somebody has looked at.
enum class CheckState : std::uint8_t { Fine, Warning, Unknown, Critical };

/// "ok", "warning", "unknown", "critical": what monitoring plugins call them.
std::string_view wordOf(CheckState state);
/// What a monitoring plugin ends with: 0, 1, 3, 2.
int exitStatusOf(CheckState state);

/// Something that is not as it should be.
struct CheckFinding {
    std::string thing = {};  ///< key of the disk, sensor or battery; what it is called in messages is `name`
    std::string aspect = {}; ///< what of it: a thing may have several findings, of different aspects
    CheckState state = CheckState::Warning;
    std::string name = {}; ///< printable, as is the text
    std::string text = {}; ///< what is wrong, without the name
    double count = 0;      ///< of what only grows, such as errors: more of it is news, even where the state stays
};

/// A figure for those who draw it, in the form of monitoring plugins.
struct CheckFigure {
    std::string label = {};
    double value = 0;
    std::string_view unit = {};          ///< "%" or none
    std::optional<double> warning = {};  ///< from there on
    std::optional<double> critical = {}; ///< likewise
    bool isBelow = false;                ///< from the limits downwards
};

/// A topic that was looked at.
struct CheckedTopic {
    std::string topic = {};                  ///< "disks"
    std::string summary = {};                ///< what there was to look at: "2 disks, one asleep"
    std::vector<CheckFinding> findings = {}; ///< empty: fine
    std::vector<std::string> notes = {};     ///< worth a line, and no fault
    std::vector<CheckFigure> figures = {};
    std::set<std::string> things = {};  ///< keys of all that is there
    std::set<std::string> awaited = {}; ///< those of which nothing is known yet: what was said of them still holds
    bool isSettling = false;            ///< the daemon has just started: others may come

    CheckState state() const;
};

/// The topics, in the order in which they are shown.
struct CheckReport {
    std::vector<CheckedTopic> topics;

    CheckState state() const;
};

/// The report of a check that could not be made: one finding of the topic "daemon".
CheckReport reportWithoutDaemon(const std::string& why);

/// "MERIDAL WARNING - sda: 92 % of its rated life is used up", and with the figures behind "|" as monitoring plugins have it.
std::string checkHeadline(const CheckReport& report, bool withFigures);
/// "WARNING sda (WX1): 92 % of its rated life is used up", with the key in brackets by which the configuration knows it.
std::string findingLine(const CheckFinding& finding);
/// "disks: WARNING - 2 disks", and below it what is wrong, the worst first; at most so many lines, the last of which says how
/// many more there are. With the notes.
std::vector<std::string> topicLines(const CheckedTopic& topic);
/// {"state": "warning", "topics": [{"topic", "state", "summary", "findings": [{"key", "aspect", "name", "state", "text"}], "notes"}]}
Value jsonOf(const CheckReport& report);

} // namespace meridal
